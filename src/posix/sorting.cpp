// Sorting and searching with a comparison that is game code. It may leave by a jump or an exception, and is called
// with nothing held.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {
namespace {

using Compare = SYSV std::int32_t(const void*, const void*);

/// Windows convention, from the host's sort.
int compare_for_host(void* compare, const void* a, const void* b) { return reinterpret_cast<Compare*>(compare)(a, b); }

SYSV void qsort_(void* base, std::uint64_t count, std::uint64_t size, Compare* compare) {
  // The host calls an array without a place, or elements without a size, an invalid parameter.
  if (count < 2 || size == 0) return;
  qsort_s(base, count, size, compare_for_host, reinterpret_cast<void*>(compare));
}

SYSV const void* bsearch_(const void* key, const std::byte* base, std::uint64_t count, std::uint64_t size,
                          Compare* compare) {
  std::uint64_t low = 0;
  std::uint64_t high = count;
  while (low < high) {
    const std::uint64_t middle = low + (high - low) / 2;
    const std::byte* const element = base + middle * size;
    const std::int32_t order = compare(key, element);
    if (order == 0) return element;
    if (order < 0) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return nullptr;
}

}  // namespace

const ShimEntry sorting_rows[] = {{"_qsort", shim(qsort_)}, {"_bsearch", shim(bsearch_)}};
constinit const ShimRows sorting_shims = sorting_rows;

}  // namespace vlm
