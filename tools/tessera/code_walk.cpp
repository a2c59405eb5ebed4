#include "tessera/code_walk.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>

#include "macho/queries.h"
#include "support/byte_reader.h"
#include "tessera/instruction.h"

namespace vlm::tessera {
namespace {

/// A range is walked anew when a table turns out to have been decoded as code, but not for ever.
constexpr int max_attempts = 8;

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

/// What texts and tables between functions look like, and no compiler writes: input and output, which an operating
/// system keeps to itself, and a REX prefix that another one follows, which has no effect.
bool is_data(const ZydisDecodedInstruction& instruction) {
  if (instruction.meta.category == ZYDIS_CATEGORY_IO || instruction.meta.category == ZYDIS_CATEGORY_IOSTRINGOP) {
    return true;
  }
  return std::ranges::any_of(std::span(instruction.raw.prefixes, instruction.raw.prefix_count), [](const auto& prefix) {
    return prefix.type == ZYDIS_PREFIX_TYPE_IGNORED && (prefix.value & 0xF0) == 0x40;
  });
}

unsigned register_of(unsigned low, unsigned rex_bit) { return low | rex_bit << 3; }

}  // namespace

// ---- Targets --------------------------------------------------------------------------------------------------------

TargetSet::TargetSet(const CodeMap& map) {
  for (const CodeSection& section : map.sections()) {
    const std::size_t words = section.extent.size() / 64 + 1;
    parts_.push_back({section.extent, std::make_unique<std::atomic<std::uint64_t>[]>(words)});
  }
}

bool TargetSet::add(std::uint64_t place) {
  for (const Part& part : parts_) {
    if (!part.extent.contains(place)) continue;
    const std::uint64_t at = place - part.extent.begin;
    std::atomic<std::uint64_t>& word = part.words[at / 64];
    const std::uint64_t bit = std::uint64_t{1} << at % 64;
    if ((word.load(std::memory_order_relaxed) & bit) != 0) return false;
    return (word.fetch_or(bit, std::memory_order_relaxed) & bit) == 0;
  }
  return false;
}

std::uint32_t TargetSet::next(std::uint32_t begin, std::uint32_t end) const {
  for (const Part& part : parts_) {
    if (end <= part.extent.begin || begin >= part.extent.end) continue;
    const std::uint32_t from = std::max(begin, part.extent.begin), to = std::min(end, part.extent.end);
    for (std::uint32_t at = from - part.extent.begin; at < to - part.extent.begin;) {
      const std::uint64_t rest = part.words[at / 64].load(std::memory_order_relaxed) >> at % 64;
      if (rest == 0) {
        at = (at / 64 + 1) * 64;
        continue;
      }
      at += static_cast<std::uint32_t>(std::countr_zero(rest));
      if (at < to - part.extent.begin) return part.extent.begin + at;
    }
  }
  return end;
}

// ---- One range ------------------------------------------------------------------------------------------------------

std::uint32_t CodeWalk::Bits::next(std::uint32_t at, std::uint32_t end, bool wanted) const {
  while (at < end) {
    const std::uint64_t word = wanted ? words_[at / 64] : ~words_[at / 64];
    const std::uint64_t rest = word >> at % 64;
    if (rest != 0) return std::min(end, at + static_cast<std::uint32_t>(std::countr_zero(rest)));
    at = (at / 64 + 1) * 64;
  }
  return end;
}

void CodeWalk::Bits::set(std::uint32_t at, std::uint32_t count) {
  const std::uint64_t bits = (std::uint64_t{1} << count) - 1;  // of 15 bytes at most
  words_[at / 64] |= bits << at % 64;
  if (at % 64 + count > 64) words_[at / 64 + 1] |= bits >> (64 - at % 64);
}

void CodeWalk::Bits::set_all(CodeRange bits) {
  for (std::uint32_t at = bits.begin; at < bits.end; ++at) set(at);
}

CodeWalk::CodeWalk(const MachImage& image, const CodeMap& map, TargetSet& targets, WalkResult& result)
    : image_(image), map_(map), targets_(targets), result_(result) {
  ZydisDecoderInit(&decoder_, machine_mode, ZYDIS_STACK_WIDTH_64);
  named_.fill(nowhere);
  loaded_.fill({nowhere, 0});
}

void CodeWalk::walk(CodeRange range, std::span<const std::uint32_t> places, std::span<const JumpTable> tables) {
  range_ = range;
  bytes_ = map_.bytes(range);
  section_ = map_.section_of(range.begin);
  tables_.clear();
  open_tables_.clear();
  covered_.clear(range.size());
  data_.clear(range.size());
  for (const CodeRange& data : map_.data_in(range)) {
    targets_.add(data.begin);  // nothing that is replaced reaches into it
    data_.set_all({data.begin - range.begin, data.end - range.begin});
  }
  note_addresses();
  for (const JumpTable& table : tables) confirm(table);
  for (int attempt = 0; attempt < max_attempts; ++attempt) {
    begins_anew_ = false;
    starts_.clear(range.size());
    covered_.clear(range.size());
    pending_.assign(places.begin(), places.end());
    pending_.push_back(range.begin);
    std::ranges::make_heap(pending_, std::greater());
    names_.clear();
    sites_.clear();
    failed_.clear();
    gap_at_ = 0;
    names_looked_at_ = 0;
    jumps_indirectly_ = false;
    for (auto& [begin, table] : tables_) {
      table.next = begin;
      open_tables_.insert(begin);
    }
    if (read_everything(attempt + 1 < max_attempts)) break;
  }
  note_tables_elsewhere();
  note_unread();
  std::ranges::sort(sites_, {}, &GsSite::vmaddr);
  result_.sites.insert(result_.sites.end(), sites_.begin(), sites_.end());
}

/// False when it has to begin anew.
bool CodeWalk::read_everything(bool may_begin_anew) {
  for (;;) {
    if (begins_anew_ && may_begin_anew) return false;
    if (!pending_.empty()) {
      const std::uint32_t place = pending_.front();
      std::ranges::pop_heap(pending_, std::greater());
      pending_.pop_back();
      decode_from(place, Reach::any);
    } else if (!follow_one_entry() && !name_more_tables() && !fill_one_gap()) {
      return true;
    }
  }
}

/// Decodes until something is reached that was decoded before, execution does not go on, or the bytes are no
/// instruction. In a gap, one that would reach into the code behind it is none.
void CodeWalk::decode_from(std::uint32_t place, Reach reach) {
  std::array<std::uint8_t, 2> before = {};
  while (place < range_.end && !starts_.has(place - range_.begin) && !(!tables_.empty() && in_table(place))) {
    const std::uint32_t at = place - range_.begin;
    ZydisDecoderContext context;
    ZydisDecodedInstruction instruction;
    if (ZYAN_FAILED(
            ZydisDecoderDecodeInstruction(&decoder_, &context, bytes_.data() + at, range_.end - place, &instruction))) {
      return;
    }
    const std::uint32_t behind = at + instruction.length;
    if (data_.next(at, behind, true) != behind || is_data(instruction)) return;
    if (reach == Reach::gap && covered_.next(at, behind, true) != behind) return;
    starts_.set(at);
    covered_.set(at, instruction.length);
    if (may_use_gs(instruction)) {
      const auto bytes = bytes_.subspan(at, instruction.length);
      if (uses_gs(*decode(bytes))) sites_.push_back({image_.vm_min + place, bytes, before});
    }
    place += instruction.length;
    before = {instruction.length, before[0]};
    note(instruction, place);
    if (!falls_through(instruction)) return;
  }
}

void CodeWalk::note(const ZydisDecodedInstruction& instruction, std::uint32_t end) {
  if (instruction.raw.imm[0].is_relative) {
    lead_to(end + static_cast<std::uint64_t>(instruction.raw.imm[0].value.s));
  } else if (instruction.meta.category == ZYDIS_CATEGORY_UNCOND_BR) {
    jumps_indirectly_ = true;
  } else if (instruction.opcode_map == ZYDIS_OPCODE_MAP_DEFAULT) {
    note_table_use(instruction, end);
  }
}

/// The instructions that jump tables are read with; see the picture in the header.
void CodeWalk::note_table_use(const ZydisDecodedInstruction& instruction, std::uint32_t end) {
  const auto& raw = instruction.raw;
  const bool wide = raw.rex.W != 0;
  if ((instruction.opcode & 0xF8) == 0xB8) {  // mov R, imm64
    if (wide) name(register_of(instruction.opcode & 7u, raw.rex.B), raw.imm[0].value.u - image_.vm_min);
    return;
  }
  if ((instruction.attributes & ZYDIS_ATTRIB_HAS_MODRM) == 0) return;
  const unsigned reg = register_of(raw.modrm.reg, raw.rex.R), rm = register_of(raw.modrm.rm, raw.rex.B);
  const bool has_sib = raw.modrm.mod != 3 && raw.modrm.rm == 4;
  const unsigned base = register_of(raw.sib.base, raw.rex.B), index = register_of(raw.sib.index, raw.rex.X);
  const auto sum = [&](unsigned one, unsigned other) {
    if (loaded_[one].begin != nowhere && loaded_[one].begin == named_[other]) return confirm(loaded_[one]);
    if (loaded_[other].begin != nowhere && loaded_[other].begin == named_[one]) return confirm(loaded_[other]);
  };
  switch (instruction.opcode) {
    case 0x8D:  // lea
      if (raw.modrm.mod == 0 && raw.modrm.rm == 5) {
        name(reg, end + static_cast<std::uint64_t>(raw.disp.value));
      } else if (has_sib && raw.sib.scale == 0 && raw.disp.value == 0) {
        sum(base, index);
      }
      return;
    case 0x63:  // movsxd R, [base+index*4]; r13 as a base takes a displacement of 0
    case 0x8B:  // mov R, [base+index*8], or one register to another
      if (has_sib && raw.disp.value == 0 && (raw.modrm.mod == 1 || raw.sib.base != 5)) {
        const unsigned width = instruction.opcode == 0x8B && wide ? 8 : 4;
        if (1u << raw.sib.scale == width) loaded_[reg] = {named_[base], width};
      } else if (raw.modrm.mod == 3 && wide && named_[rm] != nowhere) {
        named_[reg] = named_[rm];
      }
      return;
    case 0x89:  // mov the other way round
      if (raw.modrm.mod == 3 && wide && named_[reg] != nowhere) named_[rm] = named_[reg];
      return;
    case 0x01:
    case 0x03:  // add
      if (raw.modrm.mod == 3 && wide) sum(reg, rm);
      return;
    default: return;
  }
}

void CodeWalk::name(unsigned reg, std::uint64_t place) {
  if (place >= image_.extent()) return;
  named_[reg] = static_cast<std::uint32_t>(place);
  names_.push_back(static_cast<std::uint32_t>(place));
  targets_.add(place);
}

void CodeWalk::lead_to(std::uint64_t place) {
  const bool is_new = targets_.add(place);
  if (range_.contains(place)) {
    const auto here = static_cast<std::uint32_t>(place);
    if (starts_.has(here - range_.begin)) return;
    pending_.push_back(here);
    std::ranges::push_heap(pending_, std::greater());
  } else if (is_new) {
    const CodeRange* const other = map_.range_of(place);
    if (other != nullptr && other->begin != place) result_.leads_out.push_back(static_cast<std::uint32_t>(place));
  }
}

// ---- Jump tables ----------------------------------------------------------------------------------------------------

/// Places of the range whose addresses it computes, as far as bytes tell that were not decoded yet: where one table
/// ends and the next one begins, which only entries of the first may lead to the user of.
void CodeWalk::note_addresses() {
  constexpr std::uint32_t lea_size = 7;  // REX, 8D, a register and [rip+disp32]
  addresses_.clear();
  for (std::uint32_t at = 0; at + lea_size <= range_.size(); ++at) {
    const auto byte = [&](std::uint32_t i) { return static_cast<std::uint8_t>(bytes_[at + i]); };
    if (byte(1) != 0x8D || (byte(0) & 0xF8) != 0x48 || (byte(2) & 0xC7) != 0x05) continue;
    std::int32_t distance;
    std::memcpy(&distance, &bytes_[at + 3], sizeof distance);
    const std::uint64_t place = range_.begin + at + lea_size + static_cast<std::uint64_t>(distance);
    if (range_.contains(place)) addresses_.push_back(static_cast<std::uint32_t>(place));
  }
  std::ranges::sort(addresses_);
}

void CodeWalk::confirm(JumpTable table) {
  if (tables_.contains(table.begin)) return;
  targets_.add(table.begin);
  if (!range_.contains(table.begin)) {
    result_.tables_outside.push_back(table);
    return;
  }
  const std::uint32_t at = table.begin - range_.begin;
  if (covered_.has(at)) begins_anew_ = true;
  std::uint32_t limit = data_.has(at) ? range_.begin + data_.next(at, range_.size(), false) : range_.end;
  const auto behind = std::ranges::upper_bound(addresses_, table.begin);
  if (behind != addresses_.end()) limit = std::min(limit, *behind);
  tables_.emplace(table.begin, LocalTable{table.width, table.begin, limit});
  open_tables_.insert(table.begin);
}

/// True for the entries that were followed, and for the one that will be next.
bool CodeWalk::in_table(std::uint32_t place) const {
  auto table = tables_.upper_bound(place);
  if (table == tables_.begin()) return false;
  --table;
  return place < table->second.next || (place == table->second.next && open_tables_.contains(table->first));
}

/// The first `width` bytes at a place of the file, as a distance; nothing when they are not there.
std::optional<std::int64_t> CodeWalk::entry_at(std::uint64_t place, std::uint32_t width) const {
  const auto bytes = macho_bytes_at(image_, image_.vm_min + place);
  if (bytes.size() < width) return std::nullopt;
  if (width == 8) return ByteReader(bytes).read<std::int64_t>();
  return ByteReader(bytes).read<std::int32_t>();
}

/// False for a place in the middle of an instruction of this range.
bool CodeWalk::may_begin(std::uint64_t place) const {
  if (!range_.contains(place)) return true;
  const auto at = static_cast<std::uint32_t>(place - range_.begin);
  return !covered_.has(at) || starts_.has(at);
}

/// Whether these bytes do nothing but fill up to where a function, or something aligned, begins.
bool CodeWalk::is_padding(std::uint32_t place) const {
  constexpr std::uint32_t alignment = 16;
  do {
    const std::uint32_t at = place - range_.begin;
    ZydisDecoderContext context;
    ZydisDecodedInstruction instruction;
    if (ZYAN_FAILED(
            ZydisDecoderDecodeInstruction(&decoder_, &context, bytes_.data() + at, range_.end - place, &instruction))) {
      return false;
    }
    if (instruction.meta.category != ZYDIS_CATEGORY_NOP && instruction.meta.category != ZYDIS_CATEGORY_WIDENOP) {
      return false;
    }
    place += instruction.length;
  } while (place < range_.end && (image_.vm_min + place) % alignment != 0);
  return true;
}

bool CodeWalk::follow_one_entry() {
  if (open_tables_.empty()) return false;
  const std::uint32_t begin = *open_tables_.begin();
  open_tables_.erase(begin);  // unless there is an entry
  const auto table = tables_.find(begin), behind = std::next(table);
  const auto [width, at, end] = table->second;
  const std::uint32_t limit = behind == tables_.end() ? end : std::min(end, behind->first);
  if (limit < at || limit - at < width) return true;
  const std::uint32_t from = at - range_.begin;
  if (covered_.next(from, from + width, true) != from + width) return true;  // code begins
  const auto distance = entry_at(at, width);
  if (!distance) return true;
  const std::uint64_t target = begin + static_cast<std::uint64_t>(*distance);
  const bool leads_into_table = target >= begin && target < at + width;
  if (!section_->extent.contains(target) || leads_into_table || !may_begin(target)) return true;
  if (!range_.contains(target) && is_padding(at)) return true;  // which would lead somewhere, too
  covered_.set(from, width);
  table->second.next = at + width;
  open_tables_.insert(begin);
  lead_to(target);
  return true;
}

/// Addresses whose use was not seen, in a function that jumps through a register: tables too when their first entries
/// lead into it.
bool CodeWalk::name_more_tables() {
  if (!jumps_indirectly_) return false;
  const std::size_t known = tables_.size();
  for (; names_looked_at_ < names_.size(); ++names_looked_at_) {
    const std::uint32_t place = names_[names_looked_at_];
    const bool here = range_.contains(place);
    if (here ? covered_.has(place - range_.begin) : map_.data_of(place) == nullptr) continue;
    for (const std::uint32_t width : {8u, 4u}) {
      const auto distance = entry_at(place, width);
      if (!distance) continue;
      const std::uint64_t target = place + static_cast<std::uint64_t>(*distance);
      const CodeRange reach = here ? range_ : section_->extent;  // what the linker names is data for certain
      if (target == place || !reach.contains(target) || !may_begin(target)) continue;
      confirm({place, width});
      break;
    }
  }
  return tables_.size() != known;
}

/// Addresses outside of code that may be tables of such a function: what they could lead to is kept in place. None is
/// followed for more bytes than the function has, so that the work stays in proportion to the file.
void CodeWalk::note_tables_elsewhere() {
  if (!jumps_indirectly_) return;
  std::ranges::sort(names_);
  for (std::size_t i = 0; i < names_.size(); ++i) {
    if (map_.range_of(names_[i]) != nullptr) continue;
    std::uint32_t size = range_.size();
    if (i + 1 < names_.size()) size = std::min(size, names_[i + 1] - names_[i]);
    for (std::uint32_t at = 0; at + 4 <= size; at += 4) {
      const auto distance = entry_at(std::uint64_t{names_[i]} + at, 4);
      if (!distance || !range_.contains(names_[i] + static_cast<std::uint64_t>(*distance))) break;
      targets_.add(names_[i] + static_cast<std::uint64_t>(*distance));
    }
  }
}

// ---- What nothing leads to ------------------------------------------------------------------------------------------

bool CodeWalk::fill_one_gap() {
  const std::uint32_t size = range_.size();
  const std::uint32_t at = covered_.next(gap_at_, size, false);
  gap_at_ = at;
  if (at == size) return false;
  if (data_.has(at)) {
    gap_at_ = data_.next(at, size, false);
    return true;
  }
  const std::uint32_t end = data_.next(at, covered_.next(at, size, true), true);
  std::uint32_t zeros = at;
  while (zeros < end && bytes_[zeros] == std::byte{0}) ++zeros;
  if (zeros == end) {
    gap_at_ = zeros;  // padding
    return true;
  }
  decode_from(range_.begin + at, Reach::gap);
  if (starts_.has(at)) return true;
  gap_at_ = end;
  failed_.push_back({range_.begin + at, range_.begin + gap_at_});
  return true;
}

void CodeWalk::note_unread() {
  for (const CodeRange& failed : failed_) {
    const std::uint32_t end = failed.end - range_.begin;
    for (std::uint32_t at = failed.begin - range_.begin;;) {
      at = covered_.next(at, end, false);
      if (at == end) break;
      const std::uint32_t behind = covered_.next(at, end, true);
      if (!all_zero(bytes_.subspan(at, behind - at))) {
        result_.unread.push_back({range_.begin + at, range_.begin + behind});
      }
      at = behind;
    }
  }
}

}  // namespace vlm::tessera
