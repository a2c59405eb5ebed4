// The eight blocks of the shim table, composed from the families' own row arrays.
//
// A shim and its row live in one file of its family; the family's shims.h declares the array with its length.
// Each block below knows how many rows it holds. Names without a row are answered by make_missing_symbol(), so a call
// says which import is missing.
#include "binding/catalogue.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <numeric>
#include <span>
#include <string_view>

#include "abi/shims.h"
#include "binding/shim_table.h"
#include "cxx/shims.h"
#include "objc/shims.h"
#include "posix/shims.h"

namespace vlm {
namespace {

template <std::uint32_t Count>
constexpr ShimFamily family(std::uint32_t block, const char* name, const ShimEntry (&rows)[Count]) {
  return {name, rows, Count, block};
}

// In the order of registration.
[[gnu::section(".shims")]] constexpr ShimFamily families[] = {
    // C library
    family(1, "errno", error_shims),
    family(1, "memory", memory_shims),
    family(1, "strings", string_shims),
    family(1, "numbers", number_shims),
    family(1, "mathematics", math_shims),
    family(1, "characters and locales", rune_locale_shims),
    family(1, "sorting", sorting_shims),
    family(1, "random bytes", random_shims),
    family(1, "streams", stream_shims),
    family(1, "formatted text", format_shims),
    family(1, "non-local jumps", abi_block1_shims),
    family(1, "time", time_shims),
    family(1, "time as text", time_text_shims),
    family(1, "environment", environment_shims),
    family(1, "process", process_shims),
    // files and descriptors
    family(2, "variadic file calls", abi_block2_shims),
    family(2, "descriptors", descriptor_shims),
    family(2, "file status", file_status_shims),
    family(2, "directories", directory_shims),
    family(2, "mappings", mapping_shims),
    // threads, Mach, dispatch, system information, dynamic loading
    family(3, "threads", thread_shims),
    family(3, "locks", mutex_shims),
    family(3, "dispatch", dispatch_shims),
    family(3, "Mach", mach_shims),
    family(3, "signals", signal_shims),
    family(3, "system information", system_info_shims),
    family(3, "dyld", dyld_shims),
    family(3, "dynamic loading", dynamic_loading_shims),
    family(3, "block classes", block_class_shims),
    // C++ allocation, guards and handlers
    family(4, "C++ allocation", allocation_shims),
    family(4, "C++ guards", guard_shims),
    family(4, "C++ handlers", handler_shims),
    // C++ strings and synchronisation
    family(5, "C++ strings", cxx_string_shims),
    family(5, "C++ locks", cxx_lock_shims),
    // Objective-C runtime
    family(6, "message send and NSLog", abi_block6_shims),
    family(6, "Objective-C runtime", objc_runtime_shims),
    family(6, "NSObject", root_class_shims),
    // Objective-C classes, CoreFoundation
    family(7, "Objective-C classes", class_shims),
    family(7, "string constants", string_constant_shims),
    family(7, "CoreFoundation", core_foundation_shims),
    // C++ exceptions and type information
    family(8, "C++ exceptions", exception_shims),
    family(8, "C++ type information", type_table_shims),
};

/// Rows that each block has to have; entry 0 is block 1.
constexpr std::array<std::uint32_t, 8> complete_blocks = {123, 41, 59, 9, 19, 21, 70, 29};

constexpr auto rows_of_blocks() {
  std::array<std::uint32_t, 8> rows{};
  for (const ShimFamily& each : families) rows.at(each.block - 1) += each.row_count;
  return rows;
}
static_assert(rows_of_blocks() == complete_blocks, "a row is missing in a block, or one too many");
static_assert(std::accumulate(complete_blocks.begin(), complete_blocks.end(), 0u) == complete_shim_rows);
static_assert(std::ranges::is_sorted(families, {}, &ShimFamily::block));
static_assert(std::string_view(shim_section) == ".shims");

constexpr auto other_blocks = std::ranges::upper_bound(families, 1u, {}, &ShimFamily::block);

void register_families(const ShimFamily* begin, const ShimFamily* end) {
  for (const ShimFamily& each : std::span(begin, end)) register_shims({each.rows, each.row_count});
}

}  // namespace

void register_first_shim_block() { register_families(std::begin(families), other_blocks); }
void register_other_shim_blocks() { register_families(other_blocks, std::end(families)); }

}  // namespace vlm
