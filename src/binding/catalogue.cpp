// The eight blocks of the shim table, composed from the families' own row arrays.
//
// A shim and its row live in one file of its family; the family's shims.h declares the array with its length.
// Each block below knows how many rows it holds. Names without a row are answered by make_missing_symbol(), so a call
// says which import is missing.
#include "binding/catalogue.h"

#include <span>

#include "abi/shims.h"
#include "binding/shim_table.h"
#include "cxx/shims.h"
#include "objc/shims.h"
#include "posix/shims.h"

namespace vlm {
namespace {

/// A block of as many rows as it has to have.
template <std::size_t Complete, std::size_t... Rows>
void register_block(const ShimEntry (&... families)[Rows]) {
  static_assert((Rows + ... + 0) == Complete, "a row is missing in this block, or one too many");
  (register_shims(families), ...);
}

}  // namespace

void register_first_shim_block() {
  // C library
  register_block<123>(error_shims, memory_shims, string_shims, number_shims, math_shims, rune_locale_shims,
                      sorting_shims, random_shims, stream_shims, format_shims, abi_block1_shims, time_shims,
                      time_text_shims, environment_shims, process_shims);
}

void register_other_shim_blocks() {
  // files and descriptors
  register_block<41>(abi_block2_shims, descriptor_shims, file_status_shims, directory_shims, mapping_shims);
  // threads, Mach, dispatch, system information, dynamic loading
  register_block<59>(thread_shims, mutex_shims, dispatch_shims, mach_shims, signal_shims, system_info_shims,
                     dyld_shims, dynamic_loading_shims, block_class_shims);
  // C++ allocation, guards and handlers
  register_block<9>(allocation_shims, guard_shims, handler_shims);
  // C++ strings and synchronisation
  register_block<19>(cxx_string_shims, cxx_lock_shims);
  register_block<21>(abi_block6_shims, objc_runtime_shims, root_class_shims);  // Objective-C runtime
  // Objective-C classes, CoreFoundation
  register_block<70>(class_shims, string_constant_shims, core_foundation_shims);
  // C++ exceptions and type information
  register_block<29>(exception_shims, type_table_shims);
}

static_assert(123 + 41 + 59 + 9 + 19 + 21 + 70 + 29 == complete_shim_rows);

}  // namespace vlm
