// Game storage for the threads that ran before the library was loaded: the attach callback never saw them.
#include <windows.h>
#include <tlhelp32.h>
#include <winternl.h>

#include "support/handles.h"
#include "support/procedures.h"
#include "tls/game_tls.h"
#include "tls/thread_record.h"

namespace vlm {
namespace {

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

using QueryInformationThread = NTSTATUS NTAPI(HANDLE, ULONG, void*, ULONG, ULONG*);

/// Address of a thread's environment block; 0 when Windows does not tell it or the thread has ended, whose block is
/// no longer there to be touched.
std::uint64_t teb_of(HANDLE thread, QueryInformationThread* query) {
  ThreadBasicInformation information = {};
  if (query(thread, 0, &information, sizeof information, nullptr) < 0) return 0;
  if (WaitForSingleObject(thread, 0) == WAIT_OBJECT_0) return 0;
  return information.TebBaseAddress;
}

void adopt_thread(DWORD thread_id, QueryInformationThread* query) {
  UniqueHandle thread(OpenThread(THREAD_ALL_ACCESS, FALSE, thread_id));
  if (!thread) return;
  const std::uint64_t teb = teb_of(thread.get(), query);
  if (teb == 0 || game_tls_read_teb(teb) != 0) return;

  ThreadRecord* record = make_thread_record();
  if (record == nullptr) return;
  record->handle = thread.release();
  record->thread_id = thread_id;
  record->running = 1;
  set_stack_limits(record, teb);
  register_thread_record(record);
  game_tls_write_teb(teb, record);
  thread_stack_commit(teb);
}

}  // namespace

void adopt_existing_threads() {
  thread_stack_commit(current_teb());
  register_current_thread();

  auto* const query =
      find_procedure<QueryInformationThread>(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationThread");
  const UniqueHandle snapshot = own_handle(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  if (query == nullptr || !snapshot) return;

  const DWORD process = GetCurrentProcessId();
  const DWORD self = GetCurrentThreadId();
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = Thread32First(snapshot.get(), &entry); more; more = Thread32Next(snapshot.get(), &entry)) {
    if (entry.th32OwnerProcessID == process && entry.th32ThreadID != self) adopt_thread(entry.th32ThreadID, query);
  }
}

}  // namespace vlm
