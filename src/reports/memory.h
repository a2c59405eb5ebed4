// What lies at an address, asked before it is read: reports trust no pointer.
#pragma once

#include <windows.h>

#include <cstdint>

namespace vlm {

inline constexpr DWORD any_execute = PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
inline constexpr DWORD any_read = PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ |
                                  PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;

/// Where the pages end that are like the one at an address, when those are committed, have one of the protections, and
/// touching them has no effect; else 0.
inline std::uint64_t end_of_region(std::uint64_t address, DWORD protections) {
  MEMORY_BASIC_INFORMATION region;
  if (VirtualQuery(reinterpret_cast<const void*>(address), &region, sizeof region) == 0) return 0;
  const bool is_fit =
      region.State == MEM_COMMIT && (region.Protect & protections) != 0 && (region.Protect & PAGE_GUARD) == 0;
  return is_fit ? reinterpret_cast<std::uint64_t>(region.BaseAddress) + region.RegionSize : 0;
}

inline std::uint64_t end_of_readable_region(std::uint64_t address) { return end_of_region(address, any_read); }
inline bool is_code(std::uint64_t address) { return end_of_region(address, any_execute) != 0; }

}  // namespace vlm
