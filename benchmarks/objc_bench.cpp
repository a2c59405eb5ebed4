// What messages and dictionaries cost game code: a message against a call through a pointer, eight threads on two cores
// against one thread, objectForKey: against comparing every text.
//
//   objc_bench IMAGE
#include <windows.h>

#include <cstdint>
#include <cstdio>

#include "report.h"
#include "support/game.h"

using namespace vlm::bench;
using namespace vlm::test;

namespace {

using Loop = std::uint64_t(std::uint64_t);

Loop* game_loop(const char* name) { return game_function<std::uint64_t, std::uint64_t>(game_symbol(name)); }

void row(const char* name, const char* goal, int rounds, std::uint64_t count, Loop* peer, Loop* ours) {
  const auto time = compare(rounds, 1, [&] { peer(count); }, [&] { ours(count); });
  print_row(name, "ns", time.peer / count, time.ours / count, goal);
}

// ---- Eight threads --------------------------------------------------------------------------------------------------

constexpr int thread_count = 8;
constexpr int core_count = 2;
constexpr std::uint64_t thread_rounds = 2'000'000;
constexpr int sends_per_round = 4;

Loop* shared_loop;
HANDLE start[thread_count], done[thread_count];

DWORD WINAPI send_on_demand(void* index) {
  const auto i = reinterpret_cast<std::uintptr_t>(index);
  for (;;) {
    WaitForSingleObject(start[i], INFINITE);
    shared_loop(thread_rounds);
    SetEvent(done[i]);
  }
}

void row_of_threads() {
  for (std::uintptr_t i = 0; i < thread_count; ++i) {
    start[i] = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    done[i] = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    CloseHandle(CreateThread(nullptr, 0, send_on_demand, reinterpret_cast<void*>(i), 0, nullptr));
  }
  const auto time = compare(
      21, 1, [] { shared_loop(thread_rounds); },
      [] {
        for (HANDLE event : start) SetEvent(event);
        WaitForMultipleObjects(thread_count, done, TRUE, INFINITE);
      });
  constexpr double sends = thread_rounds * sends_per_round;
  print_row("message to shared classes, 8 threads on 2 cores", "ns", time.peer / sends,
            time.ours * core_count / (thread_count * sends), "1.10");
}

}  // namespace

int main(int, char** arguments) {
  SetProcessAffinityMask(GetCurrentProcess(), (1 << core_count) - 1);
  load_library(arguments[1]);
  start_game();

  row("message without arguments", "2.0", 201, 100'000, game_loop("pointer_loop"), game_loop("send_loop"));
  shared_loop = game_loop("shared_loop");
  row_of_threads();

  Loop* const fill = game_loop("fill");
  for (const std::uint64_t keys : {10, 100, 1000}) {
    if (fill(keys) != keys) return 1;
    char name[64];
    std::snprintf(name, sizeof name, "objectForKey:, %llu keys (peer: strcmp of each)",
                  static_cast<unsigned long long>(keys));
    row(name, "-", 51, 100'000 / keys, game_loop("search_loop"), game_loop("object_for_key_loop"));
  }
  leave(0);
}
