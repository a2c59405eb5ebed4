// Which rows make up the shim table.
#pragma once

#include <cstddef>

namespace vlm {

/// Registers the C library's rows; static start-up does so before the standard descriptors exist.
void register_first_shim_block();

/// Registers the seven other blocks, in order.
void register_other_shim_blocks();

/// Rows that the eight blocks hold together once every family is built.
inline constexpr std::size_t complete_shim_rows = 371;

}  // namespace vlm
