#include "cxx/exception_memory.h"

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace vlm {
namespace {

/// A header and an object of up to 112 bytes.
struct alignas(64) Place {
  std::byte bytes[192];
};
constinit Place places[64] = {};
constinit std::atomic<std::uint64_t> free_places =
    ~std::uint64_t{0};  // a bit for each; whoever clears it has the place

}  // namespace

void* allocate_exception_memory(std::uint64_t size) {
  if (size <= sizeof(Place)) {
    std::uint64_t free = free_places.load(std::memory_order_relaxed);
    while (free != 0) {
      if (!free_places.compare_exchange_weak(free, free & (free - 1), std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
        continue;
      }
      return std::memset(&places[std::countr_zero(free)], 0, size);
    }
  }
  return std::calloc(1, size);
}

void free_exception_memory(void* block) {
  const auto offset = reinterpret_cast<std::uint64_t>(block) - reinterpret_cast<std::uint64_t>(places);
  if (offset >= sizeof places) return std::free(block);
  free_places.fetch_or(std::uint64_t{1} << offset / sizeof(Place), std::memory_order_release);
}

}  // namespace vlm
