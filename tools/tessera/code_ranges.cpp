#include "tessera/code_ranges.h"

#include <algorithm>
#include <optional>

#include "macho/command_walk.h"
#include "macho/format.h"
#include "macho/queries.h"
#include "support/byte_reader.h"

namespace vlm::tessera {
namespace {

struct DataInCodeEntry {
  std::uint32_t offset;  // from the mach_header, as the linker places it: from the start of __TEXT
  std::uint16_t length;
  std::uint16_t kind;
};
static_assert(sizeof(DataInCodeEntry) == 8);

/// From `begin` up to, not including, `end`: link-time addresses.
struct Interval {
  std::uint64_t begin;
  std::uint64_t end;
};

/// Sections flagged as code in segments that will be executable.
std::vector<Interval> code_sections(const MachImage& image) {
  std::vector<Interval> sections;
  macho_walk_commands({image.file_data, image.file_size}, [&](std::uint32_t cmd, ByteReader in) {
    if (cmd != LC_SEGMENT_64) return;
    const auto segment = in.read<SegmentCommand64>();
    if ((segment.initprot & VM_PROT_EXECUTE) == 0) return;
    for (std::uint32_t i = 0; i < segment.nsects; ++i) {
      const auto section = in.read<Section64>();
      const bool is_code = (section.flags & (S_ATTR_PURE_INSTRUCTIONS | S_ATTR_SOME_INSTRUCTIONS)) != 0;
      if (in.ok() && is_code && section.size != 0) sections.push_back({section.addr, section.addr + section.size});
    }
  });
  return sections;
}

/// The data of the last command of this number; nothing when there is none.
Result<std::optional<ByteReader>> linkedit_data(const MachImage& image, std::uint32_t wanted) {
  std::optional<LinkeditDataCommand> found;
  macho_walk_commands({image.file_data, image.file_size}, [&](std::uint32_t cmd, ByteReader in) {
    if (cmd == wanted) found = in.read<LinkeditDataCommand>();
  });
  if (!found) return std::nullopt;
  if (!range_fits(found->dataoff, found->datasize, image.file_size)) {
    return fault("load command 0x%x names %u bytes at offset %u of a file of %llu bytes", wanted, found->datasize,
                 found->dataoff, static_cast<unsigned long long>(image.file_size));
  }
  return ByteReader(image.file_range(found->dataoff, found->datasize));
}

/// Offsets in the tables of __LINKEDIT count from the segment that holds the header.
std::uint64_t header_vmaddr(const MachImage& image) {
  for (int i = 0; i < image.segment_count; ++i) {
    const MachSegment& segment = image.segments[i];
    if (segment.fileoff == 0 && segment.filesize != 0) return segment.vmaddr;
  }
  return image.vm_min;
}

Result<std::vector<std::uint64_t>> function_starts(const MachImage& image) {
  std::vector<std::uint64_t> starts;
  auto table = linkedit_data(image, LC_FUNCTION_STARTS);
  if (!table) return std::unexpected(table.error());
  if (*table) {
    ByteReader& in = **table;
    std::uint64_t address = header_vmaddr(image);
    while (in.ok() && !in.at_end()) {
      const std::uint64_t distance = in.uleb128();
      if (distance == 0) break;  // padding
      starts.push_back(address += distance);
    }
  }
  if (image.nsyms != 0) {
    ByteReader in(image.file_range(image.symoff, std::uint64_t{image.nsyms} * sizeof(Nlist64)));
    while (!in.at_end()) {
      const auto symbol = in.read<Nlist64>();
      if ((symbol.n_type & (N_STAB | N_TYPE)) == N_SECT) starts.push_back(symbol.n_value);
    }
  }
  std::ranges::sort(starts);
  return starts;
}

Result<std::vector<Interval>> data_in_code(const MachImage& image) {
  std::vector<Interval> data;
  auto table = linkedit_data(image, LC_DATA_IN_CODE);
  if (!table) return std::unexpected(table.error());
  if (*table) {
    ByteReader& in = **table;
    const std::uint64_t start = header_vmaddr(image);
    while (in.left() >= sizeof(DataInCodeEntry)) {
      const auto entry = in.read<DataInCodeEntry>();
      if (entry.length != 0) data.push_back({start + entry.offset, start + entry.offset + entry.length});
    }
  }
  std::ranges::sort(data, {}, &Interval::begin);
  return data;
}

/// The part of the file that an interval of one section is read from.
Result<std::span<const std::byte>> bytes_of(const MachImage& image, Interval code) {
  const auto bytes = macho_bytes_at(image, code.begin);
  if (code.end - code.begin <= bytes.size()) return bytes.first(code.end - code.begin);
  return fault("the code section at 0x%llx is not in the file", static_cast<unsigned long long>(code.begin));
}

}  // namespace

Result<std::vector<CodeRange>> code_ranges(const MachImage& image) {
  const auto starts = function_starts(image);
  if (!starts) return std::unexpected(starts.error());
  const auto data = data_in_code(image);
  if (!data) return std::unexpected(data.error());

  std::vector<Interval> sections = code_sections(image);
  std::ranges::sort(sections, {}, &Interval::begin);
  std::vector<CodeRange> ranges;
  for (const Interval section : sections) {
    const auto bytes = bytes_of(image, section);
    if (!bytes) return std::unexpected(bytes.error());
    auto next_start = std::ranges::upper_bound(*starts, section.begin);
    auto next_data = data->begin();
    for (std::uint64_t at = section.begin; at < section.end;) {
      while (next_data != data->end() && next_data->end <= at) ++next_data;
      if (next_data != data->end() && next_data->begin <= at) {
        at = next_data->end;
        continue;
      }
      while (next_start != starts->end() && *next_start <= at) ++next_start;
      std::uint64_t end = section.end;
      if (next_start != starts->end()) end = std::min(end, *next_start);
      if (next_data != data->end()) end = std::min(end, next_data->begin);
      const std::uint64_t function_begin = next_start == starts->begin() ? section.begin : *std::prev(next_start);
      const std::uint64_t function_end = next_start == starts->end() ? section.end : *next_start;
      ranges.push_back({at, bytes->subspan(at - section.begin, end - at), std::max(function_begin, section.begin),
                        std::min(function_end, section.end)});
      at = end;
    }
  }
  return ranges;
}

}  // namespace vlm::tessera
