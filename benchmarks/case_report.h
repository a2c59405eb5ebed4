// Times the cases of a file that is compiled as game code and natively, the same way on both sides, and prints lines
// "case | goal | nanoseconds".
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "report.h"

namespace vlm::bench {

/// The best of some rounds: the two sides are different processes, so a busy machine does not disturb both alike.
///   names     "case | goal" of each case, a null at the end
///   run_case  runs a case so many times
inline void report_cases(const char* const* names, void (*run_case)(std::int64_t which, std::int64_t times)) {
  constexpr int rounds = 41;
  constexpr double round_ns = 300'000;
  for (std::int64_t which = 0; names[which] != nullptr; ++which) {
    const auto time = [&](std::int64_t times) { return time_of([&] { run_case(which, times); }); };
    const auto times = std::max<std::int64_t>(1, static_cast<std::int64_t>(round_ns * 100 / (time(100) + 1)));
    double best = time(times);
    for (int round = 1; round < rounds; ++round) best = std::min(best, time(times));
    std::printf("%s | %.2f\n", names[which], best / static_cast<double>(times));
  }
}

}  // namespace vlm::bench
