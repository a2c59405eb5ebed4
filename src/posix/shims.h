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

extern const ShimEntry thread_shims[13];   // threads.cpp
extern const ShimEntry mutex_shims[11];    // mutexes.cpp
extern const ShimEntry dispatch_shims[7];  // dispatch.cpp
extern const ShimEntry mach_shims[6];      // mach_threads.cpp
extern const ShimEntry signal_shims[2];    // signals.cpp

// C library: 26 functions and the stack canary.
extern const ShimEntry time_shims[12];        // time.cpp
extern const ShimEntry time_text_shims[1];    // time_text.cpp
extern const ShimEntry environment_shims[4];  // environment.cpp
extern const ShimEntry process_shims[10];     // process.cpp

// 18 functions.
extern const ShimEntry system_info_shims[9];      // system_info.cpp
extern const ShimEntry dyld_shims[5];             // dyld.cpp
extern const ShimEntry dynamic_loading_shims[4];  // dynamic_loading.cpp

extern const ShimEntry descriptor_shims[13];   // descriptors.cpp
extern const ShimEntry file_status_shims[10];  // file_status.cpp
extern const ShimEntry directory_shims[12];    // directories.cpp
extern const ShimEntry mapping_shims[3];       // mapping.cpp

}  // namespace vlm
