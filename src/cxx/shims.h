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

// Exceptions: 23 functions, and the virtual tables of the six kinds of type information.
extern const ShimEntry exception_shims[23];  // exceptions.cpp
extern const ShimEntry type_table_shims[6];  // type_matching.cpp

}  // namespace vlm
