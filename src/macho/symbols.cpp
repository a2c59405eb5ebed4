// Questions that the section list and the symbol table of an image answer.

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "macho/format.h"
#include "macho/queries.h"

namespace vlm {
namespace {

/// Calls `visit(entry)` for each defined section symbol, debugging entries left out, until it returns false.
template <class Visit>
void for_each_section_symbol(const MachImage& image, Visit visit) {
  if (image.nsyms == 0) return;
  const auto table = image.file_range(image.symoff, image.nsyms * sizeof(Nlist64));
  for (std::size_t at = 0; at < table.size(); at += sizeof(Nlist64)) {
    Nlist64 entry;
    std::memcpy(&entry, &table[at], sizeof entry);
    if ((entry.n_type & (N_STAB | N_TYPE)) == N_SECT && !visit(entry)) return;
  }
}

/// Bytes of the string table up to its last NUL: a name that starts below ends inside the table.
std::uint32_t terminated_strings(const MachImage& image) {
  std::uint32_t size = image.strsize;
  if (size == 0) return 0;
  const auto strings = image.file_range(image.stroff, size);
  while (size != 0 && strings[size - 1] != std::byte{0}) --size;
  return size;
}

const char* string_at(const MachImage& image, std::uint64_t n_strx) {
  return reinterpret_cast<const char*>(image.file_range(image.stroff, image.strsize).data()) + n_strx;
}

const char* find_in_index(const MachImage& image, std::span<const SymbolPlace> places, std::uint64_t address,
                          std::uint64_t* offset) {
  const std::uint64_t vmaddr = address - static_cast<std::uint64_t>(image.slide);
  const auto behind = std::ranges::upper_bound(places, vmaddr, {}, &SymbolPlace::vmaddr);
  if (behind == places.begin()) return nullptr;
  const SymbolPlace& nearest = *std::prev(behind);
  if (offset != nullptr) *offset = vmaddr - nearest.vmaddr;
  return string_at(image, nearest.n_strx);
}

}  // namespace

const MachSection* macho_find_section(const MachImage& image, std::string_view segment, std::string_view section) {
  for (int i = 0; i < image.section_count; ++i) {
    const MachSection& candidate = image.sections[i];
    if (segment == candidate.segname && section == candidate.sectname) return &candidate;
  }
  return nullptr;
}

std::span<const std::byte> macho_bytes_at(const MachImage& image, std::uint64_t vmaddr) {
  for (const MachSegment& segment : std::span(image.segments, static_cast<std::size_t>(image.segment_count))) {
    if (!segment.mapped() || vmaddr < segment.vmaddr || vmaddr - segment.vmaddr >= segment.filesize) continue;
    const std::uint64_t offset = vmaddr - segment.vmaddr;
    return {image.file_data + segment.fileoff + offset, segment.filesize - offset};
  }
  return {};
}

bool macho_is_code(const MachImage& image, std::uint64_t address) {
  for (const MachSegment& segment : std::span(image.segments, static_cast<std::size_t>(image.segment_count))) {
    const std::uint64_t start = segment.vmaddr + static_cast<std::uint64_t>(image.slide);
    if (segment.mapped() && (segment.initprot & VM_PROT_EXECUTE) && address - start < segment.vmsize) return true;
  }
  return false;
}

std::size_t macho_section_symbols(const MachImage& image, std::span<SymbolPlace> places) {
  std::size_t count = 0;
  if (places.empty()) {
    for_each_section_symbol(image, [&](const Nlist64&) {
      ++count;
      return true;
    });
    return count;
  }
  const std::uint32_t strings = terminated_strings(image);
  for_each_section_symbol(image, [&](const Nlist64& entry) {
    if (entry.n_strx < strings) places[count] = {entry.n_value, entry.n_strx, static_cast<std::uint32_t>(count)};
    if (entry.n_strx < strings) ++count;
    return true;
  });
  places = places.first(count);
  std::ranges::sort(places, {}, [](const SymbolPlace& place) { return std::pair(place.vmaddr, place.symbol); });
  const auto repeated = std::ranges::unique(places, {}, &SymbolPlace::vmaddr);
  return count - repeated.size();
}

const char* macho_symbol_for_address(const MachImage& image, std::uint64_t address, std::uint64_t* offset) {
  if (!image.contains(address)) return nullptr;
  if (const SymbolPlaces* const index = __atomic_load_n(&image.symbol_places, __ATOMIC_ACQUIRE)) {
    return find_in_index(image, index->all(), address, offset);
  }
  const std::uint32_t strings = terminated_strings(image);
  const char* name = nullptr;
  std::uint64_t nearest = 0;
  for_each_section_symbol(image, [&](const Nlist64& entry) {
    const std::uint64_t value = entry.n_value + static_cast<std::uint64_t>(image.slide);
    if (entry.n_strx < strings && value <= address && (name == nullptr || value > nearest)) {
      name = string_at(image, entry.n_strx);
      nearest = value;
    }
    return true;
  });
  if (name != nullptr && offset != nullptr) *offset = address - nearest;
  return name;
}

std::uint64_t macho_symbol_by_name(const MachImage& image, std::string_view name) {
  const std::uint32_t strings = terminated_strings(image);
  const auto matches = [&](std::uint64_t start) {
    return start + name.size() < strings && std::memcmp(string_at(image, start), name.data(), name.size()) == 0 &&
           string_at(image, start)[name.size()] == '\0';
  };
  std::uint64_t address = 0;
  for_each_section_symbol(image, [&](const Nlist64& entry) {
    const bool underscored = entry.n_strx < strings && *string_at(image, entry.n_strx) == '_';
    if (!matches(entry.n_strx) && !(underscored && matches(std::uint64_t{entry.n_strx} + 1))) return true;
    if (entry.n_value >= image.vm_min && entry.n_value < image.vm_end) {
      address = entry.n_value + static_cast<std::uint64_t>(image.slide);
    }
    return false;
  });
  return address;
}

}  // namespace vlm
