// The global operators new and delete: the heap of malloc, so either may release what the other took.
#include <cstdint>

#include "cxx/shims.h"
#include "diag/log.h"
#include "posix/heap.h"
#include "support/sysv.h"

namespace vlm {
namespace {

/// Never null. There is no new-handler and no bad_alloc: a game that is out of memory cannot go on.
SYSV void* operator_new_(std::uint64_t size) {
  void* const block = heap_allocate(size);
  if (block == nullptr) [[unlikely]] {
    fatal_error("operator new(%llu) failed", static_cast<unsigned long long>(size));
  }
  return block;
}

}  // namespace

const ShimEntry allocation_rows[] = {
    {"__Znwm", shim(operator_new_)},
    {"__Znam", shim(operator_new_)},
    {"__ZdlPv", shim(heap_free)},
    {"__ZdaPv", shim(heap_free)},
};
constinit const ShimRows allocation_shims = allocation_rows;

}  // namespace vlm
