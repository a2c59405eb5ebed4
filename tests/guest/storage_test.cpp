// Threads of every age find game storage of their own. The image is storage_guest.cpp; it is patched, so this program
// and the library with its patch list lie in a folder of their own beside "GameAssembly.dylib".
//
//   storage_test [expansion]     expansion: all 64 slots of the TEB are taken before the library is loaded
#include <cstring>

#include "support/game.h"

using namespace vlm::test;

namespace {

std::uint64_t (*exchange_slot)(std::uint64_t);
HANDLE library_loaded;
int failures = 0;

void expect(bool passed, const char* what) {
  if (passed) return;
  ++failures;
  std::printf("failed: %s\n", what);
}

void report_failure(const char* file, std::int64_t line, const char* what) {
  ++failures;
  std::printf("%s:%lld: %s\n", file, static_cast<long long>(line), what);
}

/// Runs on a thread that existed before the library, or on a new one: both count as good when the slot starts
/// empty and holds the thread's own value between calls.
DWORD WINAPI use_storage(void* tag) {
  WaitForSingleObject(library_loaded, INFINITE);
  const auto value = reinterpret_cast<std::uint64_t>(tag);
  bool good = exchange_slot(value) == 0;
  for (int i = 0; i < 1000; ++i) {
    if (i % 100 == 0) Sleep(1);
    good = good && exchange_slot(value) == value;
  }
  return good ? 0 : 1;
}

constexpr int threads = 8;

void join(HANDLE (&handles)[threads], const char* what) {
  WaitForMultipleObjects(threads, handles, TRUE, 60'000);
  for (HANDLE handle : handles) {
    DWORD result = 1;
    GetExitCodeThread(handle, &result);
    expect(result == 0, what);
    CloseHandle(handle);
  }
}

void start(HANDLE (&handles)[threads], std::uint64_t first_tag) {
  for (int i = 0; i < threads; ++i) {
    handles[i] = CreateThread(nullptr, 0, use_storage, reinterpret_cast<void*>(first_tag + i), 0, nullptr);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const bool expansion = argc > 1 && std::strcmp(argv[1], "expansion") == 0;
  if (expansion) {
    while (TlsAlloc() < 63) {
    }
  }
  library_loaded = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE older[threads], newer[threads];
  start(older, 100);

  load_library();
  start_game();
  exchange_slot = game_function<std::uint64_t, std::uint64_t>(game_symbol("exchange_slot"));
  expect(call_game<std::int64_t>("run_guest_tests", callback(&report_failure)) > 0, "the guest's tests ran");
  start(newer, 200);
  SetEvent(library_loaded);
  join(older, "a thread older than the library has storage of its own");
  join(newer, "a thread made after start-up has storage of its own");
  std::printf("thread storage%s: %d failures\n", expansion ? " in the expansion slots" : "", failures);
  leave(failures == 0 ? 0 : 1);
}
