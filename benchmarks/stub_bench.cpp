// What a stub between the calling conventions costs: to make, when there are many already, and to call.
//
//   stub_bench [ROUNDS]
//
// The callback registry fills once per process, so each round of the wrapping rows is a process of its own; a row
// shows medians over the rounds. The peer of a wrapping row is the first thousand wraps of the same process.
//
//   case | peer | ours | ratio | goal
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/sysv.h"
#include "vlm.h"

namespace {

constexpr int wraps = 10'000;
constexpr int sample = 1'000;
constexpr double wrap_goal = 2.0;

double nanoseconds() {
  LARGE_INTEGER now, frequency;
  QueryPerformanceCounter(&now);
  QueryPerformanceFrequency(&frequency);
  return 1e9 * static_cast<double>(now.QuadPart) / static_cast<double>(frequency.QuadPart);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void print_row(const char* name, double peer, double ours, const char* goal) {
  std::printf("%s | %.1f ns | %.1f ns | %.2f | %s\n", name, peer, ours, ours / peer, goal);
}

/// Nanoseconds per wrap of the first and of the last thousand out of ten thousand.
struct WrapTimes {
  double first, last;
};
template <class Wrap>
WrapTimes time_wraps(Wrap wrap) {
  // Addresses that are never called; below them, a few wraps to have the pool's first chunk and the code warm.
  const std::uint64_t targets = 0x100000000;
  for (int i = 1; i <= 20; ++i) wrap(reinterpret_cast<void*>(targets - 16 * i));
  WrapTimes times = {};
  double start = nanoseconds();
  for (int i = 0; i < wraps; ++i) {
    if (i == sample) times.first = (nanoseconds() - start) / sample;
    if (i == wraps - sample) start = nanoseconds();
    wrap(reinterpret_cast<void*>(targets + 16 * i));
  }
  times.last = (nanoseconds() - start) / sample;
  return times;
}

/// One round: prints the four times of the wrapping rows.
int run_round() {
  // The functions of the first row must not be known yet; those of the second are not shared anyway.
  const WrapTimes callbacks = time_wraps(vlm_wrap_callback);
  const WrapTimes functions = time_wraps([](void* function) { vlm_wrap_sysv_function(function, 6); });
  std::printf("%f %f %f %f\n", callbacks.first, callbacks.last, functions.first, functions.last);
  return 0;
}

std::uint64_t accumulator;
[[gnu::noinline]] SYSV std::uint64_t add_as_game_code(std::uint64_t a, std::uint64_t b) { return accumulator += a ^ b; }
[[gnu::noinline]] std::uint64_t add_as_windows_code(std::uint64_t a, std::uint64_t b) { return accumulator += a ^ b; }

using GameFunction = SYSV std::uint64_t(std::uint64_t, std::uint64_t);

double time_calls(GameFunction* called) {
  GameFunction* volatile function = called;  // an indirect call, as through an import slot
  constexpr int calls = 200'000;
  const double start = nanoseconds();
  for (int i = 0; i < calls; ++i) function(i, 7);
  return (nanoseconds() - start) / calls;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "--round") == 0) return run_round();
  const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 9;

  char program[MAX_PATH];
  GetModuleFileNameA(nullptr, program, sizeof program);
  const std::string round = std::string("\"") + program + "\" --round";
  std::vector<double> columns[4];
  for (int i = 0; i < rounds; ++i) {
    std::FILE* output = _popen(round.c_str(), "r");
    double values[4];
    if (output == nullptr ||
        std::fscanf(output, "%lf %lf %lf %lf", &values[0], &values[1], &values[2], &values[3]) != 4) {
      std::fprintf(stderr, "stub_bench: a round did not report its times\n");
      return 1;
    }
    _pclose(output);
    for (int column = 0; column < 4; ++column) columns[column].push_back(values[column]);
  }
  char goal[16];
  std::snprintf(goal, sizeof goal, "%.1f", wrap_goal);
  print_row("wrap a callback, last 1000 of 10000", median(columns[0]), median(columns[1]), goal);
  print_row("wrap a System V function, last 1000 of 10000", median(columns[2]), median(columns[3]), goal);

  const auto stub = reinterpret_cast<GameFunction*>(
      vlm_wrap_callback(reinterpret_cast<void*>(add_as_windows_code)));
  std::vector<double> direct, through_stub;
  for (int i = 0; i < rounds + 2; ++i) {
    const double peer = time_calls(add_as_game_code);
    const double ours = time_calls(stub);
    if (i < 2) continue;  // warming up
    direct.push_back(peer);
    through_stub.push_back(ours);
  }
  print_row("call through a callback stub", median(direct), median(through_stub), "-");
  return 0;
}
