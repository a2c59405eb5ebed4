// A vectored handler: Windows calls it on the thread that went wrong, before any other handler. That thread may have no
// stack left, a stack pointer that points anywhere, or a broken heap. So nothing is read before it is known to be
// readable, nothing is allocated from the heap, and a thread without stack is reported by another one.
#include "reports/crash_report.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "diag/log.h"
#include "reports/crash_dump.h"
#include "reports/memory.h"
#include "reports/recovery.h"
#include "reports/stack_report.h"
#include "reports/symbolize.h"
#include "reports/trace_log.h"
#include "support/pages.h"
#include "tls/thread_record.h"

namespace vlm {
namespace {

using Wide = unsigned long long;  // what %llx prints

constexpr int max_reports = 8;
constexpr std::uint64_t scanned_stack = 4096;  // bytes above rsp
constexpr int max_stack_lines = 32;
constexpr DWORD reporter_stack = 1024 * 1024;  // reserved; the system's dump writer needs some
constexpr DWORD reporter_patience_ms = 5000;
constexpr DWORD dump_patience_ms = 60'000;

struct Crash {
  const EXCEPTION_RECORD* record;
  const CONTEXT* context;
  std::uint64_t stack_base;  // end of the thread's stack
  DWORD thread;
};

std::atomic<int> report_count{0};
std::atomic<DWORD> reporting_threads[max_reports];  // by report; 0 once it is written

void write_stack_lines(const Crash& crash) {
  const std::uint64_t rsp = crash.context->Rsp;
  if (rsp >= crash.stack_base) return;
  const std::uint64_t size = std::min(scanned_stack, crash.stack_base - rsp);
  std::uint64_t readable_page = 1;  // no page begins there
  int lines = 0;
  for (std::uint64_t offset = 0; offset + 8 <= size && lines < max_stack_lines; offset += 8) {
    // A word may begin on one page and end on the next.
    for (const std::uint64_t byte : {rsp + offset, rsp + offset + 7}) {
      const std::uint64_t page = byte - byte % page_size;
      if (page == readable_page) continue;
      if (end_of_readable_region(page) == 0) return;
      readable_page = page;
    }
    std::uint64_t word;
    std::memcpy(&word, reinterpret_cast<const void*>(rsp + offset), sizeof word);
    char name[symbol_text_size];
    if (!is_code(word) || !symbolize_address(word, name)) continue;
    char line[640];
    std::snprintf(line, sizeof line, "  stack rsp+0x%03llx %s", Wide{offset}, name);
    log_line(line, crash.thread);
    ++lines;
  }
}

void write_report(const Crash& crash) {
  const EXCEPTION_RECORD& record = *crash.record;
  const CONTEXT& context = *crash.context;
  char name[symbol_text_size];
  if (!symbolize_address(context.Rip, name)) std::strcpy(name, "unknown code");
  char line[1024];
  std::snprintf(line, sizeof line, "EXCEPTION 0x%08lx at 0x%llx %s", record.ExceptionCode, Wide{context.Rip}, name);
  log_line(line, crash.thread);
  if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.NumberParameters >= 2) {
    const ULONG_PTR kind = record.ExceptionInformation[0];
    std::snprintf(line, sizeof line, "  %s address 0x%llx",
                  kind == 0   ? "read"
                  : kind == 1 ? "write"
                              : "execute",
                  Wide{record.ExceptionInformation[1]});
    log_line(line, crash.thread);
  }
  std::snprintf(line, sizeof line, "  rax=%llx rbx=%llx rcx=%llx rdx=%llx rsi=%llx rdi=%llx rbp=%llx rsp=%llx",
                context.Rax, context.Rbx, context.Rcx, context.Rdx, context.Rsi, context.Rdi, context.Rbp, context.Rsp);
  log_line(line, crash.thread);
  std::snprintf(line, sizeof line, "  r8=%llx r9=%llx r10=%llx r11=%llx r12=%llx r13=%llx r14=%llx r15=%llx",
                context.R8, context.R9, context.R10, context.R11, context.R12, context.R13, context.R14, context.R15);
  log_line(line, crash.thread);
  log_stack(context, crash.thread, crash.stack_base);
  write_stack_lines(crash);
  log_last_calls(crash.thread);
  write_trace_now();
}

// ---- A thread that has used up its stack ----------------------------------------------------------------------------

/// The thread that reports for others. It exists beforehand: a thread without stack cannot make one. One crash at a
/// time; a second stack overflow meanwhile waits for its turn, but not for ever.
struct {
  HANDLE turn = nullptr;     // automatic: signalled while nobody has the turn
  HANDLE crashed = nullptr;  // automatic: what follows describes a crash
  HANDLE written = nullptr;  // automatic: the report is written
  // Copies: the crashed thread may be gone before the report is written.
  EXCEPTION_RECORD record;
  CONTEXT context;
  std::uint64_t stack_base;
  DWORD thread;
  bool writes_report;  // else a dump only
} reporter;

DWORD WINAPI report_for_others(void*) {
  for (;;) {
    WaitForSingleObject(reporter.crashed, INFINITE);
    if (reporter.writes_report) {
      write_report({&reporter.record, &reporter.context, reporter.stack_base, reporter.thread});
    }
    if (wants_crash_dump()) write_crash_dump(reporter.thread, reporter.record, reporter.context);
    SetEvent(reporter.written);
  }
}

void start_reporter() {
  reporter.turn = CreateEventW(nullptr, FALSE, TRUE, nullptr);
  reporter.crashed = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  reporter.written = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  start_own_thread(report_for_others, nullptr, reporter_stack);
}

/// Waits for a while only: the crashed thread may hold a lock that the reporter needs.
void report_by_another_thread(const Crash& crash, bool writes_report) {
  if (WaitForSingleObject(reporter.turn, reporter_patience_ms) != WAIT_OBJECT_0) return;
  reporter.record = *crash.record;
  reporter.context = *crash.context;
  reporter.stack_base = crash.stack_base;
  reporter.thread = crash.thread;
  reporter.writes_report = writes_report;
  SetEvent(reporter.crashed);
  const DWORD patience = wants_crash_dump() ? dump_patience_ms : reporter_patience_ms;
  const bool written = WaitForSingleObject(reporter.written, patience) == WAIT_OBJECT_0;
  if (written) SetEvent(reporter.turn);  // else the reporter is still at it, and has had its last turn
}

// ---- The handler ----------------------------------------------------------------------------------------------------

bool is_reporting(DWORD thread) {
  return std::ranges::any_of(reporting_threads, [&](const auto& other) { return other == thread; });
}

/// Error severity, and not one of a program's own codes, such as those of C++ exceptions.
bool is_crash(DWORD code) { return code >= 0xC0000000 && (code & 0x20000000) == 0; }

LONG CALLBACK crash_handler(EXCEPTION_POINTERS* exception) {
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  if (!is_crash(code)) return EXCEPTION_CONTINUE_SEARCH;
  if (recover_report(*exception->ContextRecord)) return EXCEPTION_CONTINUE_EXECUTION;
  const DWORD thread = GetCurrentThreadId();
  if (is_reporting(thread)) return EXCEPTION_CONTINUE_SEARCH;  // an exception within a report
  if (report_count.load(std::memory_order_relaxed) >= max_reports) return EXCEPTION_CONTINUE_SEARCH;
  const int report = report_count.fetch_add(1);
  if (report >= max_reports) return EXCEPTION_CONTINUE_SEARCH;

  reporting_threads[report] = thread;
  const Crash crash{exception->ExceptionRecord, exception->ContextRecord,
                    reinterpret_cast<std::uint64_t>(reinterpret_cast<const NT_TIB*>(NtCurrentTeb())->StackBase),
                    thread};
  if (code == EXCEPTION_STACK_OVERFLOW) {
    report_by_another_thread(crash, true);
  } else {
    write_report(crash);
    if (wants_crash_dump()) report_by_another_thread(crash, false);
  }
  reporting_threads[report] = 0;
  return EXCEPTION_CONTINUE_SEARCH;
}

/// Who called what ended the game, and what that thread did before.
void report_fatal_end() {
  log_game_callers();
  log_last_calls(GetCurrentThreadId());
  write_trace_now();
}

}  // namespace

void install_crash_handler() {
  set_fatal_end_reporter(report_fatal_end);
  set_up_crash_dump();
  start_reporter();
  AddVectoredExceptionHandler(0, crash_handler);
}

}  // namespace vlm
