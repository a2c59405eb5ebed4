// The row arrays of the POSIX families, for the catalogue.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

// Memory, strings and math: 74 functions and one object.
extern const ShimEntry error_shims[2];        // error_numbers.cpp
extern const ShimEntry memory_shims[15];      // memory.cpp
extern const ShimEntry string_shims[10];      // strings.cpp
extern const ShimEntry number_shims[5];       // numbers.cpp
extern const ShimEntry math_shims[34];        // math.cpp
extern const ShimEntry rune_locale_shims[6];  // rune_locale.cpp
extern const ShimEntry sorting_shims[2];      // sorting.cpp
extern const ShimEntry random_shims[1];       // random.cpp

extern const ShimEntry stream_shims[13];  // streams.cpp

}  // namespace vlm
