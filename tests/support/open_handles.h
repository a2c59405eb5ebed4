// The process's open handles.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdint>

namespace vlm::test {

/// Each value is asked for, as Wine's GetProcessHandleCount knows no number.
inline std::int64_t count_open_handles_once() {
  constexpr std::uintptr_t most = 4200;  // some more than there are descriptors
  std::int64_t count = 0;
  DWORD flags;
  for (std::uintptr_t handle = 4; handle <= 4 * most; handle += 4) {
    count += GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags) != 0;
  }
  return count;
}

/// The smaller of two counts: the thread that looks for controllers has some open for a few milliseconds at a time.
inline std::int64_t count_open_handles() {
  const std::int64_t first = count_open_handles_once();
  Sleep(30);
  return std::min(first, count_open_handles_once());
}

}  // namespace vlm::test
