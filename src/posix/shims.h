// The rows of the POSIX families, for the catalogue.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

// The C library
extern const ShimRows error_shims;           // error_numbers.cpp
extern const ShimRows memory_shims;          // memory.cpp
extern const ShimRows string_shims;          // strings.cpp
extern const ShimRows number_shims;          // numbers.cpp
extern const ShimRows math_shims;            // math.cpp
extern const ShimRows rune_locale_shims;     // rune_locale.cpp
extern const ShimRows sorting_shims;         // sorting.cpp
extern const ShimRows random_shims;          // random.cpp
extern const ShimRows stream_shims;          // streams.cpp
extern const ShimRows formatted_text_shims;  // formatted_text.cpp
extern const ShimRows jump_shims;            // jumps.cpp
extern const ShimRows time_shims;            // time.cpp
extern const ShimRows time_text_shims;       // time_text.cpp
extern const ShimRows environment_shims;     // environment.cpp
extern const ShimRows process_shims;         // process.cpp

// Files
extern const ShimRows descriptor_shims;   // descriptors.cpp
extern const ShimRows file_status_shims;  // file_status.cpp
extern const ShimRows directory_shims;    // directories.cpp
extern const ShimRows mapping_shims;      // mapping.cpp

// Threads
extern const ShimRows thread_shims;    // threads.cpp
extern const ShimRows mutex_shims;     // mutexes.cpp
extern const ShimRows dispatch_shims;  // dispatch.cpp
extern const ShimRows mach_shims;      // mach_threads.cpp
extern const ShimRows signal_shims;    // signals.cpp

// The system and its loader
extern const ShimRows system_info_shims;      // system_info.cpp
extern const ShimRows dyld_shims;             // dyld.cpp
extern const ShimRows dynamic_loading_shims;  // dynamic_loading.cpp

}  // namespace vlm
