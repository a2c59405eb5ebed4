// The row arrays of the thread families, for the catalogue.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

extern const ShimEntry thread_shims[13];   // threads.cpp
extern const ShimEntry mutex_shims[11];    // mutexes.cpp
extern const ShimEntry dispatch_shims[7];  // dispatch.cpp
extern const ShimEntry mach_shims[6];      // mach_threads.cpp
extern const ShimEntry signal_shims[2];    // signals.cpp

}  // namespace vlm
