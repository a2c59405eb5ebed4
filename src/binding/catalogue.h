// Which rows make up the shim table. The list of them is data in a section of its own, ".shims", so that a tool reads
// from the library's file which imports have an implementation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "binding/shim_table.h"

namespace vlm {

/// One array of rows, as it stands in ".shims". In the library's file pointers are addresses at its preferred base.
struct ShimFamily {
  const char* name;  // for reports: "threads"
  const ShimEntry* rows;
  std::uint32_t row_count;
  std::uint32_t block;  // 1 to 8
};
static_assert(sizeof(ShimFamily) == 24 && offsetof(ShimFamily, row_count) == 16);
static_assert(std::is_trivially_copyable_v<ShimFamily>);

inline constexpr char shim_section[] = ".shims";

/// Registers the C library's rows; static start-up does so before the standard descriptors exist.
void register_first_shim_block();

/// Registers the seven other blocks, in order.
void register_other_shim_blocks();

/// Rows that the eight blocks hold together once every family is built.
inline constexpr std::size_t complete_shim_rows = 371;

}  // namespace vlm
