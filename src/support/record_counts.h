// What the library notes for itself and never frees, counted as it is made.
#pragma once

#include <atomic>
#include <cstdint>

namespace vlm {

struct RecordCounts {
  std::atomic<std::uint32_t> frames, methods, callbacks, calls, threads;
};
inline constinit RecordCounts record_counts{};

}  // namespace vlm
