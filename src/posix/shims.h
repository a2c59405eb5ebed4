// The row arrays of the POSIX families, for the catalogue.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

extern const ShimEntry memory_shims[10];  // memory.cpp
extern const ShimEntry string_shims[8];   // strings.cpp
extern const ShimEntry stream_shims[5];   // streams.cpp

}  // namespace vlm
