// Memory shims: the C heap, which game code shares with the library, and operations on blocks of bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "posix/errno.h"
#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {

constinit thread_local std::int32_t shim_errno = 0;

namespace {

/// macOS hands out a block for a request of nothing; the host may hand out null.
std::uint64_t at_least_one(std::uint64_t size) { return size == 0 ? 1 : size; }

SYSV void* malloc_(std::uint64_t size) { return std::malloc(at_least_one(size)); }
SYSV void* calloc_(std::uint64_t count, std::uint64_t size) {
  std::uint64_t total = 0;
  if (__builtin_mul_overflow(at_least_one(count), at_least_one(size), &total)) return nullptr;
  return std::calloc(1, total);
}
SYSV void* realloc_(void* block, std::uint64_t size) { return std::realloc(block, at_least_one(size)); }
SYSV void free_(void* block) { std::free(block); }

SYSV void bzero_(void* to, std::uint64_t size) { std::memset(to, 0, size); }
SYSV void* memset_(void* to, std::int32_t value, std::uint64_t size) { return std::memset(to, value, size); }
/// macOS's memcpy and memmove are one function: game code that overlaps works there, so it works here.
SYSV void* memmove_(void* to, const void* from, std::uint64_t size) { return std::memmove(to, from, size); }
SYSV std::int32_t memcmp_(const void* a, const void* b, std::uint64_t size) { return std::memcmp(a, b, size); }

SYSV std::int32_t* error_() { return &shim_errno; }

}  // namespace

const ShimEntry memory_shims[10] = {
    {"_malloc", shim(malloc_)},   {"_calloc", shim(calloc_)},   {"_realloc", shim(realloc_)}, {"_free", shim(free_)},
    {"___bzero", shim(bzero_)},   {"_memset", shim(memset_)},   {"_memcpy", shim(memmove_)},  {"_memmove", shim(memmove_)},
    {"_memcmp", shim(memcmp_)},   {"___error", shim(error_)},
};

}  // namespace vlm
