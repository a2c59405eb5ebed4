// Benchmarks: the peer and ours in turn inside one run, medians, one line per case.
#pragma once

#ifdef _WIN32
#include <windows.h>
#else
#include <chrono>
#endif

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

namespace vlm::bench {

/// Nanoseconds since some fixed moment.
inline double now_ns() {
#ifdef _WIN32
  LARGE_INTEGER count, frequency;
  QueryPerformanceCounter(&count);
  QueryPerformanceFrequency(&frequency);
  return static_cast<double>(count.QuadPart) * 1e9 / static_cast<double>(frequency.QuadPart);
#else
  return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now().time_since_epoch()).count();
#endif
}

/// Nanoseconds that it takes to do something once.
template <class Work>
double time_of(Work work) {
  const double start = now_ns();
  work();
  return now_ns() - start;
}

inline double median(std::vector<double> samples) {
  std::ranges::nth_element(samples, samples.begin() + samples.size() / 2);
  return samples[samples.size() / 2];
}

/// Nanoseconds per call of `peer` and of `ours`, measured alternately so that a busy machine disturbs both alike.
struct Pair {
  double peer;
  double ours;
};
template <class Peer, class Ours>
Pair compare(int rounds, int calls, Peer peer, Ours ours) {
  std::vector<double> peer_samples, ours_samples;
  for (int round = -2; round < rounds; ++round) {  // two rounds to warm up
    const double start = now_ns();
    for (int i = 0; i < calls; ++i) peer();
    const double middle = now_ns();
    for (int i = 0; i < calls; ++i) ours();
    const double end = now_ns();
    if (round < 0) continue;
    peer_samples.push_back((middle - start) / calls);
    ours_samples.push_back((end - middle) / calls);
  }
  return {median(std::move(peer_samples)), median(std::move(ours_samples))};
}

/// One line of the table that ./bench prints: case | peer | ours | ratio | goal.
inline void print_row(const char* name, const char* unit, double peer, double ours, const char* goal) {
  std::printf("%s | %.2f %s | %.2f %s | %.2f | %s\n", name, peer, unit, ours, unit, ours / peer, goal);
}

}  // namespace vlm::bench
