#include "tessera/gs_sites.h"

#include <algorithm>
#include <cstring>

#include "macho/fixups.h"
#include "macho/queries.h"
#include "support/byte_reader.h"
#include "tessera/instruction.h"

namespace vlm::tessera {
namespace {

bool all_zero(std::span<const std::byte> bytes) {
  return std::ranges::all_of(bytes, [](std::byte byte) { return byte == std::byte{0}; });
}

/// What of an instruction alone, without its operands, lets it use gs: most need not be looked at further.
bool may_use_gs(const ZydisDecodedInstruction& instruction) {
  if ((instruction.attributes & ZYDIS_ATTRIB_HAS_SEGMENT_GS) != 0) return true;
  switch (instruction.opcode_map) {
    case ZYDIS_OPCODE_MAP_DEFAULT:
      return instruction.opcode == 0x8C || instruction.opcode == 0x8E;  // mov to and from segment registers
    case ZYDIS_OPCODE_MAP_0F:  // swapgs, push, pop and lgs, rdgsbase and wrgsbase
      return instruction.opcode == 0x01 || instruction.opcode == 0xA8 || instruction.opcode == 0xA9 ||
             instruction.opcode == 0xB5 || instruction.opcode == 0xAE;
    default: return false;
  }
}

class Walk {
 public:
  Walk(const MachImage& image, std::span<const CodeRange> ranges) : image_(image), ranges_(ranges) {
    ZydisDecoderInit(&decoder_, machine_mode, ZYDIS_STACK_WIDTH_64);
  }

  void visit(std::uint32_t number) {
    const CodeRange& range = ranges_[number];
    if (range.function_begin != function_begin_) {
      end_function();
      function_begin_ = range.function_begin;
      function_end_ = range.function_end;
    }
    std::array<std::uint8_t, 2> before = {};
    for (std::size_t at = 0; at < range.bytes.size();) {
      const auto rest = range.bytes.subspan(at);
      ZydisDecoderContext context;
      ZydisDecodedInstruction instruction;
      if (ZYAN_FAILED(ZydisDecoderDecodeInstruction(&decoder_, &context, rest.data(), rest.size(), &instruction))) {
        if (!all_zero(rest)) found_.undecoded.push_back({range.vmaddr + at, rest.size()});
        break;
      }
      const auto bytes = rest.first(instruction.length);
      if (may_use_gs(instruction) && uses_gs(*decode(bytes))) {
        found_.sites.push_back({range.vmaddr + at, bytes, number, before});
      }
      at += instruction.length;
      note_targets(instruction, range.vmaddr + at);
      before = {instruction.length, before[0]};
    }
  }

  Result<GsSearch> finish() {
    end_function();
    if (auto rebased = add_rebased_pointers(); !rebased) return std::unexpected(rebased.error());
    std::ranges::sort(found_.targets);
    const auto repeated = std::ranges::unique(found_.targets);
    found_.targets.erase(repeated.begin(), repeated.end());
    return std::move(found_);
  }

 private:
  /// Data counts too: that nothing but code is asked about later is cheaper than to ask here.
  void add_target(std::uint64_t vmaddr) {
    if (vmaddr >= image_.vm_min && vmaddr < image_.vm_end) {
      found_.targets.push_back(static_cast<std::uint32_t>(vmaddr - image_.vm_min));
    }
  }

  void note_targets(const ZydisDecodedInstruction& instruction, std::uint64_t end) {
    if (instruction.raw.imm[0].is_relative) {
      add_target(end + static_cast<std::uint64_t>(instruction.raw.imm[0].value.s));
    } else if (instruction.meta.category == ZYDIS_CATEGORY_UNCOND_BR) {
      jumps_indirectly_ = true;
    }
    const bool at_rip = (instruction.attributes & ZYDIS_ATTRIB_HAS_MODRM) != 0 && instruction.raw.modrm.mod == 0 &&
                        instruction.raw.modrm.rm == 5;
    if (at_rip && instruction.mnemonic == ZYDIS_MNEMONIC_LEA) {
      const std::uint64_t address = end + static_cast<std::uint64_t>(instruction.raw.disp.value);
      tables_.push_back(address);
      add_target(address);
    }
  }

  /// Jump tables of a function that jumps through a register: 32-bit distances from the table, whose address the
  /// function computed. A table ends where the next one begins, or where an entry leads out of the function. No
  /// table is followed for more bytes than the function has, so that the work stays in proportion to the file.
  void end_function() {
    if (jumps_indirectly_) {
      std::ranges::sort(tables_);
      for (std::size_t i = 0; i < tables_.size(); ++i) {
        std::uint64_t size = function_end_ - function_begin_;
        if (i + 1 < tables_.size()) size = std::min(size, tables_[i + 1] - tables_[i]);
        auto entries = macho_bytes_at(image_, tables_[i]);
        for (std::uint64_t at = 0; at + 4 <= std::min<std::uint64_t>(size, entries.size()); at += 4) {
          std::int32_t distance;
          std::memcpy(&distance, entries.data() + at, sizeof distance);
          const std::uint64_t target = tables_[i] + static_cast<std::uint64_t>(std::int64_t{distance});
          if (target < function_begin_ || target >= function_end_) break;
          add_target(target);
        }
      }
    }
    tables_.clear();
    jumps_indirectly_ = false;
  }

  /// Where the pointers that the loader will rebase lead to. Those of a run lie in one segment.
  Result<void> add_rebased_pointers() {
    const auto walked = macho_walk_rebases(image_, [&](PointerRun run) {
      if (run.stride == 0) run.count = 1;  // the same pointer again and again
      for (; run.count != 0; --run.count, run.offset += run.stride) {
        ByteReader pointer(macho_bytes_at(image_, image_.vm_min + run.offset));
        const auto target = pointer.read<std::uint64_t>();
        if (pointer.ok()) add_target(target);
      }
    });
    if (!walked) return std::unexpected(walked.error());
    return {};
  }

  const MachImage& image_;
  std::span<const CodeRange> ranges_;
  ZydisDecoder decoder_;
  GsSearch found_;

  // Of the function being walked:
  std::uint64_t function_begin_ = 0;
  std::uint64_t function_end_ = 0;
  std::vector<std::uint64_t> tables_;  // addresses that it computes relative to rip
  bool jumps_indirectly_ = false;
};

}  // namespace

bool GsSearch::leads_inside(std::uint64_t begin, std::uint64_t end) const {
  const auto target = std::ranges::upper_bound(targets, begin);
  return target != targets.end() && *target < end;
}

Result<GsSearch> find_gs_sites(const MachImage& image, std::span<const CodeRange> ranges, const Progress& progress) {
  std::uint64_t total = 0, done = 0, reported = 0;
  for (const CodeRange& range : ranges) total += range.bytes.size();
  Walk walk(image, ranges);
  for (std::size_t i = 0; i < ranges.size(); ++i) {
    walk.visit(static_cast<std::uint32_t>(i));
    done += ranges[i].bytes.size();
    if (done - reported >= 1'000'000) progress(reported = done, total);
  }
  progress(total, total);
  return walk.finish();
}

}  // namespace vlm::tessera
