// Plays soak_guest.mm for some time and looks whether the process grows.
//
//   soak_test IMAGE SECONDS
//
// After a quarter of the time for the warm-up, samples are taken each second. The median of the last third of them may
// lie above the median of the first third by no more than the slack below: a leak of any step would be far beyond it.
// Every half minute a line is printed; benchmarks/plot_soak draws them.
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <vector>

#include "support/game.h"
#include "support/host_program.h"
#include "support/open_handles.h"

using namespace vlm::test;

namespace {

constexpr std::int64_t byte_slack = 3 << 20;
constexpr std::int64_t handle_slack = 72;  // 64 threads that have ended are remembered, each with its handle
constexpr std::int64_t record_slack = 64;  // places of those threads
constexpr std::size_t least_samples = 6;   // on a busy machine it takes longer

int failures = 0;
ULONGLONG begin, length_ms;
std::vector<std::int64_t> samples[3];  // bytes, handles, records

void report(std::int64_t worker, const char* what) {
  if (++failures <= 20) std::printf("worker %lld: %s\n", static_cast<long long>(worker), what);
  std::fflush(stdout);
}

bool go_on(std::int64_t ended_threads) {
  static unsigned calls = 0;
  const ULONGLONG passed = GetTickCount64() - begin;
  PROCESS_MEMORY_COUNTERS counters{};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  vlm_record_counts records{};
  library_function<decltype(&vlm_count_records)>("vlm_count_records")(&records);
  const std::int64_t found[] = {static_cast<std::int64_t>(counters.PagefileUsage), count_open_handles(),
                                records.frames + records.methods + records.callbacks + records.calls + records.threads};
  for (int i = 0; i < 3 && passed > length_ms / 4; ++i) samples[i].push_back(found[i]);
  if (calls++ % 30 == 0) {
    std::printf("%llu s: %lld KiB private, %lld threads ended, %lld handles, %lld records\n", passed / 1000,
                found[0] / 1024, static_cast<long long>(ended_threads), found[1], found[2]);
    std::fflush(stdout);
  }
  return passed < length_ms || samples[0].size() < least_samples;
}

std::int64_t growth_of(std::vector<std::int64_t>& values) {
  const auto third = static_cast<std::ptrdiff_t>(values.size() / 3);
  const auto median = [&](auto begin) {
    std::sort(begin, begin + third);
    return begin[third / 2];
  };
  return median(values.end() - third) - median(values.begin());
}

}  // namespace

HOST_PROGRAM(soak) {
  if (argc != 3) return std::puts("usage: soak_test IMAGE SECONDS"), 1;
  load_library(argv[1]);
  start_game();
  game_variable<void*>("go_on") = callback(&go_on);
  game_variable<void*>("report") = callback(&report);

  begin = GetTickCount64();
  length_ms = 1000 * std::strtoull(argv[2], nullptr, 10);
  const auto steps = call_game<std::int64_t>("run_soak");
  const std::int64_t bytes = growth_of(samples[0]), handles = growth_of(samples[1]), records = growth_of(samples[2]);
  std::printf("%lld steps; growth after the warm-up: %lld KiB, %lld handles, %lld records\n",
              static_cast<long long>(steps), static_cast<long long>(bytes / 1024), static_cast<long long>(handles),
              static_cast<long long>(records));
  if (steps == 0 || bytes > byte_slack || handles > handle_slack || records > record_slack) ++failures;
  std::printf("%d failures\n", failures);
  leave(failures == 0 ? 0 : 1);
}
