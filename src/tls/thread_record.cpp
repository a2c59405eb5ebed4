#include "tls/thread_record.h"

#include <winternl.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "support/handles.h"
#include "support/procedures.h"
#include "support/record_counts.h"
#include "tls/game_tls.h"

namespace vlm {

constinit StandstillLock registry_lock;

namespace {

// All guarded by registry_lock, but that a record's storage is its thread's. Constant-initialised: threads attach
// before any constructor ran. Pages of places that were never taken cost nothing.
constinit ThreadRecord records[max_threads] = {};
constinit std::uint32_t places_given = 0;  // places below have had a thread

/// Places whose threads have retired, oldest first.
constinit struct {
  std::uint16_t places[max_threads];
  std::uint32_t first, count;

  void add(std::uint32_t place) { places[(first + count++) % max_threads] = static_cast<std::uint16_t>(place); }
  std::uint32_t take() {
    const std::uint32_t place = places[first];
    first = (first + 1) % max_threads;
    --count;
    return place;
  }
} retired = {};

/// So many ended threads are remembered before a place is used again.
constexpr std::uint32_t remembered_threads = 64;

/// Stands in the slots of the library's own threads, which need none of it.
constinit ThreadRecord own_threads_record = {};

std::uint32_t place_of(const ThreadRecord& record) { return record.port - first_thread_port; }

/// The place of the thread that retired first, of those that are gone; null when none is. A retired thread may still
/// have some way to go.
ThreadRecord* take_retired_locked() {
  for (std::uint32_t left = retired.count; left != 0; --left) {
    ThreadRecord& record = records[retired.take()];
    if (has_ended(record)) return &record;
    retired.add(place_of(record));
  }
  return nullptr;
}

/// A thread that was killed did not retire. Asking all of them takes a while, so only when there is no other place.
ThreadRecord* find_killed_locked() {
  for (ThreadRecord& record : records) {
    if (!record.retired && has_ended(record)) return &record;
  }
  return nullptr;
}

ThreadRecord* free_place_locked() {
  ThreadRecord* record = nullptr;
  if (retired.count > remembered_threads) record = take_retired_locked();
  if (record != nullptr) return record;
  if (places_given < max_threads) {
    record = &records[places_given];
    record->port = first_thread_port + places_given++;
    ++record_counts.threads;
    return record;
  }
  record = take_retired_locked();
  return record != nullptr ? record : find_killed_locked();
}

/// Empties a record for its next thread.
void fill(ThreadRecord& record, HANDLE thread, std::uint32_t thread_id, std::uint64_t teb, bool running) {
  record.handle = thread;
  record.cleanup_stack = nullptr;
  record.thread_id = thread_id;
  record.stack_low = teb_field<std::uint64_t>(teb, TEB_DEALLOCATION_STACK);
  record.stack_high = teb_field<std::uint64_t>(teb, TEB_STACK_BASE);
  record.running = running;
  ++record.life;
  record.retired = false;
  std::memset(record.storage, 0, sizeof record.storage);
}

/// THREAD_BASIC_INFORMATION, information class 0.
struct ThreadBasicInformation {
  std::int32_t ExitStatus;
  std::uint64_t TebBaseAddress;
  std::uint64_t UniqueProcess;
  std::uint64_t UniqueThread;
  std::uint64_t AffinityMask;
  std::int32_t Priority;
  std::int32_t BasePriority;
};
static_assert(sizeof(ThreadBasicInformation) == 48 && offsetof(ThreadBasicInformation, TebBaseAddress) == 8);

/// The environment block of a thread that was made suspended; 0 when it was killed. Some systems finish making it on
/// the thread itself: looking at its registers waits for that.
std::uint64_t teb_of_new_thread(HANDLE thread) {
  std::uint64_t teb;
  CONTEXT context;
  context.ContextFlags = CONTEXT_INTEGER;
  do {
    GetThreadContext(thread, &context);
    teb = teb_of_thread(thread);
  } while (teb == 0 && WaitForSingleObject(thread, 0) == WAIT_TIMEOUT);
  return teb;
}

}  // namespace

std::uint64_t teb_of_thread(HANDLE thread) {
  using QueryInformationThread = NTSTATUS NTAPI(HANDLE, ULONG, void*, ULONG, ULONG*);
  static const auto query =
      find_procedure<QueryInformationThread>(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationThread");
  ThreadBasicInformation information = {};
  if (query == nullptr || query(thread, 0, &information, sizeof information, nullptr) < 0) return 0;
  return information.TebBaseAddress;
}

bool has_ended(const ThreadRecord& thread) {
  return thread.handle == nullptr || WaitForSingleObject(thread.handle, 0) == WAIT_OBJECT_0;
}

ThreadRecord* thread_record_of_port_locked(std::uint32_t port) {
  if (port < first_thread_port || port - first_thread_port >= places_given) return nullptr;
  return &records[port - first_thread_port];
}

ThreadRecord* take_thread_place_locked(HANDLE thread, std::uint32_t thread_id, std::uint64_t teb, bool running) {
  ThreadRecord* const record = free_place_locked();
  if (record == nullptr) return nullptr;
  if (record->handle != nullptr) CloseHandle(record->handle);
  fill(*record, thread, thread_id, teb, running);
  return record;
}

ThreadRecord* register_current_thread() {
  if (ThreadRecord* record = game_tls_get()) return record;
  HANDLE thread = nullptr;
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread, 0, FALSE,
                  DUPLICATE_SAME_ACCESS);
  ThreadRecord* record;
  {
    const std::lock_guard guard(registry_lock);
    record = take_thread_place_locked(thread, GetCurrentThreadId(), current_teb(), true);
  }
  if (record == nullptr) {
    record = static_cast<ThreadRecord*>(std::calloc(1, sizeof(ThreadRecord)));
    if (record == nullptr) {
      CloseHandle(thread);
      return nullptr;
    }
    fill(*record, thread, GetCurrentThreadId(), current_teb(), true);
  }
  game_tls_set(record);
  return record;
}

void retire_current_thread() {
  ThreadRecord* const record = game_tls_get();
  if (record == nullptr || record == &own_threads_record) return;
  if (record->port != 0) {  // the record stays: other modules' farewells may run game code
    const std::lock_guard guard(registry_lock);
    record->retired = true;
    retired.add(place_of(*record));
    return;
  }
  game_tls_set(nullptr);
  CloseHandle(record->handle);
  std::free(record);
}

ThreadRecord* make_suspended_thread(std::size_t stack_size, LPTHREAD_START_ROUTINE procedure, void* argument) {
  ExpansionArray spare = make_expansion_array();
  DWORD thread_id = 0;
  UniqueHandle thread(CreateThread(nullptr, stack_size, procedure, argument, CREATE_SUSPENDED, &thread_id));
  if (!thread) return nullptr;
  ThreadRecord* record = nullptr;
  if (const std::uint64_t teb = teb_of_new_thread(thread.get())) {
    const std::lock_guard guard(registry_lock);
    if (game_tls_prepare_teb(teb, spare)) {
      record = take_thread_place_locked(thread.get(), thread_id, teb, false);
      if (record != nullptr) game_tls_write_teb(teb, record);
    }
  }
  if (record != nullptr) {
    thread.release();
  } else {
    TerminateThread(thread.get(), 0);  // it has not run an instruction yet
  }
  return record;
}

bool start_own_thread(LPTHREAD_START_ROUTINE procedure, void* argument, DWORD stack_size) {
  ExpansionArray spare = make_expansion_array();
  const DWORD flags = CREATE_SUSPENDED | (stack_size != 0 ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0);
  const UniqueHandle thread(CreateThread(nullptr, stack_size, procedure, argument, flags, nullptr));
  if (!thread) return false;
  const std::uint64_t teb = teb_of_new_thread(thread.get());
  if (teb != 0 && game_tls_prepare_teb(teb, spare)) game_tls_write_teb(teb, &own_threads_record);
  ResumeThread(thread.get());
  return true;
}

}  // namespace vlm
