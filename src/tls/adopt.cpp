// Game storage for the threads that ran before the library was loaded: the attach callback never saw them.
#include <windows.h>
#include <tlhelp32.h>

#include <mutex>

#include "support/handles.h"
#include "tls/game_tls.h"
#include "tls/thread_record.h"

namespace vlm {
namespace {

/// The thread stands still meanwhile: one that ended would take its environment block with it. Nothing that it may hold
/// is needed then but the registry's lock, which keeps it from being stopped with that.
void adopt_thread(DWORD thread_id) {
  UniqueHandle thread(OpenThread(THREAD_ALL_ACCESS, FALSE, thread_id));
  if (!thread) return;
  ExpansionArray spare = make_expansion_array();
  CONTEXT context;
  context.ContextFlags = CONTEXT_INTEGER;
  const std::lock_guard guard(registry_lock);
  if (SuspendThread(thread.get()) == ~DWORD{0}) return;
  // Looking at its registers waits until it stands.
  const std::uint64_t teb = GetThreadContext(thread.get(), &context) ? teb_of_thread(thread.get()) : 0;
  const HANDLE standing = thread.get();
  if (teb != 0 && game_tls_read_teb(teb) == 0 && game_tls_prepare_teb(teb, spare)) {
    if (ThreadRecord* const record = take_thread_place_locked(standing, thread_id, teb, true)) {
      thread.release();
      game_tls_write_teb(teb, record);
      thread_stack_commit(teb);
    }
  }
  ResumeThread(standing);
}

}  // namespace

void adopt_existing_threads() {
  thread_stack_commit(current_teb());
  register_current_thread();

  const UniqueHandle snapshot = own_handle(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  if (!snapshot) return;

  const DWORD process = GetCurrentProcessId();
  const DWORD self = GetCurrentThreadId();
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = Thread32First(snapshot.get(), &entry); more; more = Thread32Next(snapshot.get(), &entry)) {
    if (entry.th32OwnerProcessID == process && entry.th32ThreadID != self) adopt_thread(entry.th32ThreadID);
  }
}

}  // namespace vlm
