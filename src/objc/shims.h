// The rows of Objective-C and Foundation, for the catalogue.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

extern const ShimRows block_class_shims;      // runtime.cpp
extern const ShimRows message_send_shims;     // dispatch.cpp
extern const ShimRows objc_runtime_shims;     // runtime.cpp
extern const ShimRows root_class_shims;       // classes.cpp
extern const ShimRows class_shims;            // classes.cpp
extern const ShimRows core_foundation_shims;  // core_foundation.cpp
extern const ShimRows string_constant_shims;  // string_constants.cpp

}  // namespace vlm
