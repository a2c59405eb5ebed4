// The row arrays of time, environment, process, system information and dynamic loading, for the catalogue.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

// C library: 26 functions and the stack canary.
extern const ShimEntry time_shims[12];        // time.cpp
extern const ShimEntry time_text_shims[1];    // time_text.cpp
extern const ShimEntry environment_shims[4];  // environment.cpp
extern const ShimEntry process_shims[10];     // process.cpp

// 18 functions.
extern const ShimEntry system_info_shims[9];      // system_info.cpp
extern const ShimEntry dyld_shims[5];             // dyld.cpp
extern const ShimEntry dynamic_loading_shims[4];  // dynamic_loading.cpp

}  // namespace vlm
