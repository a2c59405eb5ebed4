// Pages of memory, and the regions that Windows has them in.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace vlm {

/// Bytes of a page: Windows and macOS agree about x86-64.
inline constexpr std::size_t page_size = 4096;

/// The region from the page of an address on: pages in a row that are alike. Its size is 0 where no memory can be.
inline MEMORY_BASIC_INFORMATION region_at(std::uintptr_t address) {
  MEMORY_BASIC_INFORMATION region{};
  if (VirtualQuery(reinterpret_cast<const void*>(address), &region, sizeof region) == 0) return {};
  return region;
}

inline std::uintptr_t end_of(const MEMORY_BASIC_INFORMATION& region) {
  return reinterpret_cast<std::uintptr_t>(region.BaseAddress) + region.RegionSize;
}

/// Calls `visit(region, address, size)` for each region of a range, with the part of it that lies in the range, until
/// one returns false.
template <class Visit>
bool for_each_region(std::uintptr_t address, std::uint64_t size, Visit visit) {
  if (address + size < address) return false;
  for (const std::uintptr_t end = address + size; address < end;) {
    const MEMORY_BASIC_INFORMATION region = region_at(address);
    if (region.RegionSize == 0) return false;
    const std::uintptr_t part_end = std::min(end_of(region), end);
    if (!visit(region, address, part_end - address)) return false;
    address = part_end;
  }
  return true;
}

}  // namespace vlm
