// The process's open handles.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdint>

namespace vlm::test {

/// Each value is asked for, as Wine's GetProcessHandleCount knows no number. The smaller of two counts: the thread that
/// looks for controllers has some open for a few milliseconds at a time.
inline std::int64_t count_open_handles() {
  std::int64_t counts[2] = {};
  for (auto& count : counts) {
    DWORD flags;
    for (std::uintptr_t handle = 4; handle <= 4 * 4200; handle += 4) {  // some more than there are descriptors
      count += GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags) != 0;
    }
    Sleep(30);
  }
  return std::min(counts[0], counts[1]);
}

}  // namespace vlm::test
