// The row arrays of the C++ runtime, for the catalogue.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

// Allocation, guards and handlers: 9 functions.
extern const ShimEntry allocation_shims[4];  // allocation.cpp
extern const ShimEntry guard_shims[3];       // guards.cpp
extern const ShimEntry handler_shims[2];     // handlers.cpp

// Strings, and destructors that have nothing to do: 19 functions.
extern const ShimEntry cxx_string_shims[17];  // strings.cpp
extern const ShimEntry cxx_lock_shims[2];     // handlers.cpp

}  // namespace vlm
