// Memory of exception objects and their headers. Most are small and gone soon: they have places of their own, which
// cost less than the heap, and are there when the heap is exhausted. Others live in the heap.
#pragma once

#include <cstdint>

namespace vlm {

/// `size` zeroed bytes, 16-byte aligned; null without memory. Any thread.
void* allocate_exception_memory(std::uint64_t size);

/// Takes back what allocate_exception_memory() gave.
void free_exception_memory(void* block);

}  // namespace vlm
