// Which families make up the shim table. The list of them is data in a section of its own, ".shims", so that a tool
// reads from the library's file which imports have an implementation.
#pragma once

#include <type_traits>

#include "binding/shim_table.h"

namespace vlm {

/// One family, as it stands in ".shims". In the library's file pointers are addresses at its preferred base.
struct ShimFamily {
  const char* name;  // for reports: "threads"
  const ShimRows* rows;
};
static_assert(sizeof(ShimFamily) == 16 && std::is_trivially_copyable_v<ShimFamily>);
static_assert(sizeof(ShimRows) == 16 && std::is_trivially_copyable_v<ShimRows>, "rows are read from the file as well");

inline constexpr char shim_section[] = ".shims";

/// All families, in the order of registration.
std::span<const ShimFamily> shim_families();

/// Registers the rows of all families. Part of static start-up.
void register_shim_families();

}  // namespace vlm
