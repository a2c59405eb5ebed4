// What locks, thread-specific data, patched thread storage and stopping threads cost game code, against the Windows
// calls that each comes down to. Runs in a folder of its own, with a library that carries the image's patch list.
#include <windows.h>
#include <tlhelp32.h>

#include <cstdint>
#include <vector>

#include "report.h"
#include "support/game.h"

using namespace vlm::bench;
using namespace vlm::test;

namespace {

constexpr std::uint64_t calls = 20'000;
constexpr int spinners = 8;
constexpr std::uint32_t tls_slots = 0x1480;

auto* game_loop(const char* name) { return game_function<std::uint64_t, std::uint64_t>(game_symbol(name)); }

struct {
  SRWLOCK lock = SRWLOCK_INIT;
  volatile std::uint32_t owner = 0, count = 0;
} slim;

void slim_loop(std::uint64_t rounds) {
  for (std::uint64_t i = 0; i < rounds; ++i) {
    AcquireSRWLockExclusive(&slim.lock);
    slim.owner = 1;
    slim.count = 1;
    ReleaseSRWLockExclusive(&slim.lock);
  }
}

std::uint64_t storage_offset;  // of the slot that holds the calling thread's storage, found by its contents

/// The same access inlined: the storage from its TLS slot, the value from the storage, the next key from the value.
std::uint64_t inline_loop(std::uint64_t rounds) {
  std::uint64_t key = 300;
  for (std::uint64_t i = 0; i < rounds; ++i) {
    std::uint64_t value;
    asm volatile("movq %%gs:(%1), %0\n\tmovq (%0,%2,8), %0\n\tandq $0, %0"
                 : "=&r"(value)
                 : "r"(storage_offset), "r"(key));
    key = 300 + value;
  }
  return key;
}

std::vector<HANDLE> spinner_handles;

void bare_stop(std::uint64_t rounds) {
  for (std::uint64_t round = 0; round < rounds; ++round) {
    for (HANDLE thread : spinner_handles) {
      SuspendThread(thread);  // takes effect when the registers are asked for, so that comes right behind
      CONTEXT context;
      context.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER | CONTEXT_SEGMENTS;
      GetThreadContext(thread, &context);
    }
    for (HANDLE thread : spinner_handles) ResumeThread(thread);
  }
}

std::vector<DWORD> thread_ids() {
  std::vector<DWORD> ids;
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ids.push_back(entry.th32ThreadID);
  }
  CloseHandle(snapshot);
  return ids;
}

template <class Peer, class Ours>
void row(const char* name, const char* goal, int rounds, std::uint64_t count, Peer peer, Ours ours) {
  const auto time = compare(rounds, 1, [&] { peer(count); }, [&] { ours(count); });
  print_row(name, "ns", time.peer / count, time.ours / count, goal);
}

}  // namespace

int main() {
  load_library();
  start_game();
  row("mutex lock and unlock, uncontended", "1.25", 101, calls, slim_loop, game_loop("lock_loop"));

  const auto storage = game_loop("storage_address")(0);
  for (unsigned slot = 0; slot < 64; ++slot) {
    if (__readgsqword(tls_slots + 8 * slot) == storage) storage_offset = tls_slots + 8 * slot;
  }
  if (storage_offset == 0) return 1;
  row("pthread_getspecific", "1.5", 101, calls, inline_loop, game_loop("getspecific_loop"));
  row("patched gs load (goal: at most 3 ns more)", "-", 101, calls, inline_loop, game_loop("gs_loop"));

  const auto before = thread_ids();
  game_loop("start_spinners")(spinners);
  for (const DWORD id : thread_ids()) {
    if (std::ranges::find(before, id) == before.end()) {
      spinner_handles.push_back(OpenThread(THREAD_ALL_ACCESS, FALSE, id));
    }
  }
  if (spinner_handles.size() != spinners) return 1;
  row("stop and restart 8 threads", "1.20", 21, 20, bare_stop, game_loop("stop_the_world"));
  leave(0);
}
