// The C heap, which game code shares with the library: what one takes, the other may release.
#pragma once

#include <cstdint>

#include "support/sysv.h"

namespace vlm {

/// What game code calls malloc: 16-byte aligned, a block even for a size of 0, null when memory is out.
SYSV void* heap_allocate(std::uint64_t size);

/// What game code calls free: any block of the heap, those of posix_memalign too; null does nothing.
SYSV void heap_free(void* block);

}  // namespace vlm
