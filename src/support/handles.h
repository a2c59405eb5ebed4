// Owners of Windows handles and of memory from the C heap.
#pragma once

#include <windows.h>

#include <cstdlib>
#include <memory>

namespace vlm {

struct HandleCloser {
  void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};
using UniqueHandle = std::unique_ptr<void, HandleCloser>;

/// Files and snapshots say INVALID_HANDLE_VALUE where events say null; from here on "none" is null.
inline UniqueHandle own_handle(HANDLE handle) {
  return UniqueHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

struct HeapDeleter {
  void operator()(void* block) const noexcept { std::free(block); }
};
/// A block of the C heap, which game code and the library share.
template <class T>
using UniqueHeap = std::unique_ptr<T, HeapDeleter>;

}  // namespace vlm
