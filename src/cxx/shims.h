// The rows of the C++ runtime, for the catalogue.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

extern const ShimRows allocation_shims;  // allocation.cpp
extern const ShimRows guard_shims;       // guards.cpp
extern const ShimRows handler_shims;     // handlers.cpp
extern const ShimRows cxx_string_shims;  // strings.cpp
extern const ShimRows cxx_lock_shims;    // handlers.cpp: destructors that have nothing to do
extern const ShimRows exception_shims;   // exceptions.cpp
extern const ShimRows type_table_shims;  // type_matching.cpp: virtual tables of the six kinds of type information

}  // namespace vlm
