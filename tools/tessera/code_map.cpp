#include "tessera/code_map.h"

#include <algorithm>
#include <functional>
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

/// A place of the image as 32 bits; nothing when it lies outside.
std::optional<std::uint32_t> place_of(const MachImage& image, std::uint64_t vmaddr) {
  const std::uint64_t place = vmaddr - image.vm_min;
  if (place >= image.extent()) return std::nullopt;
  return static_cast<std::uint32_t>(place);
}

/// Sections flagged as code in segments that will be executable. Of what overlaps, the later part counts once.
Result<std::vector<CodeSection>> code_sections(const MachImage& image) {
  std::vector<CodeRange> extents;
  macho_walk_commands({image.file_data, image.file_size}, [&](std::uint32_t cmd, ByteReader in) {
    if (cmd != LC_SEGMENT_64) return;
    const auto segment = in.read<SegmentCommand64>();
    if ((segment.initprot & VM_PROT_EXECUTE) == 0) return;
    for (std::uint32_t i = 0; i < segment.nsects; ++i) {
      const auto section = in.read<Section64>();
      const bool is_code = (section.flags & (S_ATTR_PURE_INSTRUCTIONS | S_ATTR_SOME_INSTRUCTIONS)) != 0;
      if (!in.ok() || !is_code || section.size == 0) continue;
      const auto begin = place_of(image, section.addr);
      if (!begin) continue;
      const std::uint64_t end = *begin + std::min(section.size, image.extent());
      extents.push_back({*begin, static_cast<std::uint32_t>(std::min<std::uint64_t>(end, UINT32_MAX))});
    }
  });
  std::ranges::sort(extents, {}, &CodeRange::begin);
  std::vector<CodeSection> sections;
  for (CodeRange extent : extents) {
    if (!sections.empty()) extent.begin = std::max(extent.begin, sections.back().extent.end);
    if (extent.begin >= extent.end) continue;
    const auto bytes = macho_bytes_at(image, image.vm_min + extent.begin);
    if (bytes.size() < extent.size()) {
      const unsigned long long vmaddr = image.vm_min + extent.begin;
      return fault("the code section at 0x%llx is not in the file", vmaddr);
    }
    sections.push_back({extent, bytes.first(extent.size())});
  }
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

Result<std::vector<std::uint32_t>> function_starts(const MachImage& image) {
  std::vector<std::uint32_t> starts;
  const auto add = [&](std::uint64_t vmaddr) {
    if (const auto place = place_of(image, vmaddr)) starts.push_back(*place);
  };
  auto table = linkedit_data(image, LC_FUNCTION_STARTS);
  if (!table) return std::unexpected(table.error());
  if (*table) {
    ByteReader& in = **table;
    std::uint64_t address = header_vmaddr(image);
    while (in.ok() && !in.at_end()) {
      const std::uint64_t distance = in.uleb128();
      if (distance == 0) break;  // padding
      add(address += distance);
    }
  }
  if (image.nsyms != 0) {
    ByteReader in(image.file_range(image.symoff, std::uint64_t{image.nsyms} * sizeof(Nlist64)));
    while (!in.at_end()) {
      const auto symbol = in.read<Nlist64>();
      if ((symbol.n_type & (N_STAB | N_TYPE)) == N_SECT) add(symbol.n_value);
    }
  }
  std::ranges::sort(starts);
  return starts;
}

Result<std::vector<CodeRange>> data_in_code(const MachImage& image) {
  std::vector<CodeRange> data;
  auto table = linkedit_data(image, LC_DATA_IN_CODE);
  if (!table) return std::unexpected(table.error());
  if (*table) {
    ByteReader& in = **table;
    const std::uint64_t start = header_vmaddr(image);
    while (in.left() >= sizeof(DataInCodeEntry)) {
      const auto entry = in.read<DataInCodeEntry>();
      const auto begin = place_of(image, start + entry.offset);
      if (entry.length != 0 && begin && *begin <= UINT32_MAX - entry.length) {
        data.push_back({*begin, *begin + entry.length});
      }
    }
  }
  std::ranges::sort(data, {}, &CodeRange::begin);
  return data;
}

/// Of ascending ranges the one that holds a place.
template <class Range, class Extent>
const Range* find_range(std::span<const Range> ranges, std::uint64_t place, Extent extent) {
  const auto behind = std::ranges::upper_bound(
      ranges, place, {}, [&](const Range& range) -> std::uint64_t { return std::invoke(extent, range).begin; });
  if (behind == ranges.begin() || !std::invoke(extent, *std::prev(behind)).contains(place)) return nullptr;
  return &*std::prev(behind);
}

}  // namespace

Result<CodeMap> CodeMap::of(const MachImage& image) {
  const auto starts = function_starts(image);
  if (!starts) return std::unexpected(starts.error());
  auto data = data_in_code(image);
  if (!data) return std::unexpected(data.error());
  auto sections = code_sections(image);
  if (!sections) return std::unexpected(sections.error());

  CodeMap map;
  map.sections_ = std::move(*sections);
  map.data_ = std::move(*data);
  for (const CodeSection& section : map.sections_) {
    std::uint32_t at = section.extent.begin;
    for (auto next = std::ranges::upper_bound(*starts, at); at < section.extent.end; ++next) {
      const std::uint32_t end = next == starts->end() ? section.extent.end : std::min(*next, section.extent.end);
      if (at < end) map.ranges_.push_back({at, end});
      at = end;
    }
  }
  return map;
}

const CodeSection* CodeMap::section_of(std::uint64_t place) const {
  return find_range(std::span(sections_), place, &CodeSection::extent);
}

const CodeRange* CodeMap::range_of(std::uint64_t place) const {
  return find_range(std::span(ranges_), place, std::identity());
}

const CodeRange* CodeMap::data_of(std::uint64_t place) const {
  return find_range(std::span(data_), place, std::identity());
}

std::vector<CodeRange> CodeMap::data_in(CodeRange range) const {
  std::vector<CodeRange> found;
  for (auto data = std::ranges::lower_bound(data_, range.begin, {}, &CodeRange::end); data != data_.end(); ++data) {
    if (data->begin >= range.end) break;
    const CodeRange part = {std::max(data->begin, range.begin), std::min(data->end, range.end)};
    if (part.begin < part.end) found.push_back(part);
  }
  return found;
}

std::span<const std::byte> CodeMap::bytes(CodeRange range) const {
  const CodeSection& section = *section_of(range.begin);
  return section.bytes.subspan(range.begin - section.extent.begin, range.size());
}

}  // namespace vlm::tessera
