// The row arrays of Objective-C and Foundation, for the catalogue.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

extern const ShimEntry block_class_shims[2];       // runtime.cpp
extern const ShimEntry objc_runtime_shims[16];     // runtime.cpp
extern const ShimEntry root_class_shims[2];        // classes.cpp
extern const ShimEntry class_shims[53];            // classes.cpp
extern const ShimEntry core_foundation_shims[10];  // core_foundation.cpp
extern const ShimEntry string_constant_shims[7];   // string_constants.cpp

}  // namespace vlm
