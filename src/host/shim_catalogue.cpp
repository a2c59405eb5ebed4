// The families of the shim table, in the order of registration. A shim and its row live in one file of its family; the
// family's shims.h declares the rows. Names without a row are answered by make_missing_symbol(), so a call says which
// import is missing.
#include "host/shim_catalogue.h"

#include <string_view>

#include "cxx/shims.h"
#include "objc/shims.h"
#include "posix/shims.h"

namespace vlm {
namespace {

[[gnu::section(".shims")]] constexpr ShimFamily families[] = {
    // C library
    {"errno", &error_shims},
    {"memory", &memory_shims},
    {"strings", &string_shims},
    {"numbers", &number_shims},
    {"mathematics", &math_shims},
    {"characters and locales", &rune_locale_shims},
    {"sorting", &sorting_shims},
    {"random bytes", &random_shims},
    {"streams", &stream_shims},
    {"formatted text", &formatted_text_shims},
    {"non-local jumps", &jump_shims},
    {"time", &time_shims},
    {"time as text", &time_text_shims},
    {"environment", &environment_shims},
    {"process", &process_shims},
    // files and descriptors
    {"descriptors", &descriptor_shims},
    {"file status", &file_status_shims},
    {"directories", &directory_shims},
    {"mappings", &mapping_shims},
    // threads, Mach, dispatch, system information, dynamic loading
    {"threads", &thread_shims},
    {"locks", &mutex_shims},
    {"dispatch", &dispatch_shims},
    {"Mach", &mach_shims},
    {"signals", &signal_shims},
    {"system information", &system_info_shims},
    {"dyld", &dyld_shims},
    {"dynamic loading", &dynamic_loading_shims},
    {"block classes", &block_class_shims},
    // C++ allocation, guards and handlers
    {"C++ allocation", &allocation_shims},
    {"C++ guards", &guard_shims},
    {"C++ handlers", &handler_shims},
    // C++ strings and synchronisation
    {"C++ strings", &cxx_string_shims},
    {"C++ locks", &cxx_lock_shims},
    // Objective-C runtime
    {"message send", &message_send_shims},
    {"Objective-C runtime", &objc_runtime_shims},
    {"NSObject", &root_class_shims},
    // Objective-C classes, CoreFoundation
    {"Objective-C classes", &class_shims},
    {"string constants", &string_constant_shims},
    {"CoreFoundation", &core_foundation_shims},
    // C++ exceptions and type information
    {"C++ exceptions", &exception_shims},
    {"C++ type information", &type_table_shims},
};
static_assert(std::string_view(shim_section) == ".shims");

}  // namespace

std::span<const ShimFamily> shim_families() { return families; }

void register_shim_families() {
  for (const ShimFamily& family : families) register_shims(*family.rows);
}

}  // namespace vlm
