// What a stub between the calling conventions costs: to make, when there are many already, and to call.
//
// The callback registry fills once per process, so each round of the wrapping rows is a process of its own; a row
// shows medians over the rounds. The peer of a wrapping row is the first thousand wraps of the same process.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "report.h"
#include "support/sysv.h"
#include "vlm.h"

using namespace vlm::bench;

namespace {

constexpr int rounds = 9;
constexpr int wraps = 10'000;
constexpr int sample = 1'000;

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
  double start = now_ns();
  for (int i = 0; i < wraps; ++i) {
    if (i == sample) times.first = (now_ns() - start) / sample;
    if (i == wraps - sample) start = now_ns();
    wrap(reinterpret_cast<void*>(targets + 16 * i));
  }
  times.last = (now_ns() - start) / sample;
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

}  // namespace

int main(int count, char** arguments) {
  if (count > 1 && std::strcmp(arguments[1], "--round") == 0) return run_round();

  wchar_t program[MAX_PATH];
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  const std::wstring round = std::wstring(L"\"") + program + L"\" --round";
  std::vector<double> columns[4];
  for (int i = 0; i < rounds; ++i) {
    std::FILE* output = _wpopen(round.c_str(), L"r");
    double values[4];
    if (output == nullptr ||
        std::fscanf(output, "%lf %lf %lf %lf", &values[0], &values[1], &values[2], &values[3]) != 4) {
      std::fprintf(stderr, "stub_bench: a round did not report its times\n");
      return 1;
    }
    _pclose(output);
    for (int column = 0; column < 4; ++column) columns[column].push_back(values[column]);
  }
  print_row("wrap a callback, last 1000 of 10000", "ns", median(columns[0]), median(columns[1]), "2.0");
  print_row("wrap a System V function, last 1000 of 10000", "ns", median(columns[2]), median(columns[3]), "2.0");

  // Volatile: called through a pointer, as from an import slot.
  GameFunction* volatile direct = add_as_game_code;
  GameFunction* volatile stub =
      reinterpret_cast<GameFunction*>(vlm_wrap_callback(reinterpret_cast<void*>(add_as_windows_code)));
  const auto time = compare(rounds, 200'000, [&] { direct(1, 7); }, [&] { stub(1, 7); });
  print_row("call through a callback stub", "ns", time.peer, time.ours, "-");
}
