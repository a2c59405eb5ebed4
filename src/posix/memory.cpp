// Memory shims: the C heap, which game code shares with the library, and operations on blocks of bytes.
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "posix/aligned_blocks.h"
#include "posix/heap.h"
#include "posix/shims.h"
#include "support/bytes.h"
#include "support/darwin_errno.h"
#include "support/sysv.h"

namespace vlm {
namespace {

// Called straight through the import table, without the linker's jump on the way.
extern "C" __declspec(dllimport) void* host_malloc(std::size_t) __asm__("malloc");
extern "C" __declspec(dllimport) void host_free(void*) __asm__("free");

constinit AlignedBlocks aligned_blocks;

/// What every block of the heap is aligned to.
constexpr std::uint64_t heap_alignment = 16;

/// macOS hands out a block for a request of nothing; the host may hand out null.
std::uint64_t at_least_one(std::uint64_t size) { return size == 0 ? 1 : size; }

SYSV void* calloc_(std::uint64_t count, std::uint64_t size) {
  std::uint64_t total;
  if (__builtin_mul_overflow(at_least_one(count), at_least_one(size), &total)) return nullptr;
  return std::calloc(1, total);
}

/// Apart from heap_free, so that its registers are not saved for every ordinary block.
[[gnu::noinline]] void free_possibly_aligned(void* block) {
  if (aligned_blocks.remove(block)) {
    _aligned_free(block);
  } else {
    std::free(block);
  }
}

/// An aligned block moves to an ordinary one: C promises no more alignment than the heap's to what realloc returns.
[[gnu::noinline]] void* realloc_possibly_aligned(void* block, std::uint64_t size) {
  const std::uint64_t old_size = aligned_blocks.size_of(block);
  if (old_size == 0) return std::realloc(block, size);
  void* const moved = std::malloc(size);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, block, std::min(old_size, size));
  free_possibly_aligned(block);
  return moved;
}

SYSV void* realloc_(void* block, std::uint64_t size) {
  size = at_least_one(size);
  if (aligned_blocks.may_contain(block)) [[unlikely]]
    return realloc_possibly_aligned(block, size);
  return std::realloc(block, size);
}

/// Null when memory is out, or for an alignment that is not a power of two (the host may end the process over one).
void* allocate_aligned(std::uint64_t alignment, std::uint64_t size) {
  constexpr std::uint64_t address_space = std::uint64_t{1} << 47;  // the host adds the two up; below this they fit
  if ((alignment & (alignment - 1)) != 0 || alignment > address_space || size > address_space) return nullptr;
  void* const block = _aligned_malloc(size, alignment);
  if (block != nullptr && !aligned_blocks.add(block, size)) {
    _aligned_free(block);
    return nullptr;
  }
  return block;
}

SYSV std::int32_t posix_memalign_(void** result, std::uint64_t alignment, std::uint64_t size) {
  size = at_least_one(size);
  *result = alignment <= heap_alignment ? std::malloc(size) : allocate_aligned(alignment, size);
  return *result == nullptr ? DARWIN_ENOMEM : 0;
}

SYSV void bzero_(void* to, std::uint64_t size) { std::memset(to, 0, size); }
SYSV void* memset_(void* to, std::int32_t value, std::uint64_t size) { return std::memset(to, value, size); }

/// The pattern restarts every 16 bytes; a last part is cut.
SYSV void memset_pattern16_(std::byte* to, const void* pattern, std::uint64_t size) {
  std::byte copy[16];  // what is filled may overlap the pattern
  std::memcpy(copy, pattern, sizeof copy);
  for (; size >= sizeof copy; size -= sizeof copy, to += sizeof copy) std::memcpy(to, copy, sizeof copy);
  std::memcpy(to, copy, size);
}

SYSV const void* memchr_(const void* block, std::int32_t value, std::uint64_t size) {
  return std::memchr(block, value, size);
}

/// The wchar_t of macOS has 32 bits, so the host's function does not do.
SYSV const std::int32_t* wmemchr_(const std::int32_t* units, std::int32_t value, std::uint64_t count) {
  const auto* const found = std::find(units, units + count, value);
  return found == units + count ? nullptr : found;
}

}  // namespace

SYSV void* heap_allocate(std::uint64_t size) { return host_malloc(at_least_one(size)); }

SYSV void heap_free(void* block) {
  if (aligned_blocks.may_contain(block)) [[unlikely]] {
    free_possibly_aligned(block);
  } else {
    host_free(block);  // null does nothing there
  }
}

// macOS's memcpy and memmove are one function: game code that overlaps works there, so it works here. The checked
// forms carry the size of the destination in a last argument, which is left alone.
const ShimEntry memory_rows[] = {
    {"_malloc", shim(heap_allocate)},
    {"_calloc", shim(calloc_)},
    {"_realloc", shim(realloc_)},
    {"_free", shim(heap_free)},
    {"_posix_memalign", shim(posix_memalign_)},
    {"___bzero", shim(bzero_)},
    {"_memset", shim(memset_)},
    {"___memset_chk", shim(memset_)},
    {"_memset_pattern16", shim(memset_pattern16_)},
    {"_memcpy", shim(copy_bytes)},
    {"_memmove", shim(copy_bytes)},
    {"___memmove_chk", shim(copy_bytes)},
    {"_memchr", shim(memchr_)},
    {"_memcmp", shim(compare_bytes)},
    {"_wmemchr", shim(wmemchr_)},
};
constinit const ShimRows memory_shims = memory_rows;

}  // namespace vlm
