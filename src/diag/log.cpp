#include "diag/log.h"

#include <windows.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include "support/handles.h"
#include "support/save_directory.h"

namespace vlm {
namespace {

constexpr int log_threshold = 0;
constexpr std::size_t message_size = 2048;
constexpr std::size_t line_size = 2304;

// Written once by open_log() inside log_once, then read-only. The thread-attach callback may log before any constructor
// ran, so all of this is constant-initialised.
constinit INIT_ONCE log_once = INIT_ONCE_STATIC_INIT;
constinit HANDLE log_file = nullptr;
constinit ULONGLONG start_tick = 0;

constinit void (*fatal_end_reporter)() = nullptr;  // written by static start-up

BOOL CALLBACK open_log(PINIT_ONCE, PVOID, PVOID*) {
  start_tick = GetTickCount64();
  const std::wstring folder = make_data_directory();
  if (folder.empty()) return TRUE;
  const std::wstring path = folder + L"\\loader.log";
  MoveFileExW(path.c_str(), (folder + L"\\loader.previous.log").c_str(), MOVEFILE_REPLACE_EXISTING);
  // For appending: a second start empties the file, and lines of this one then follow that one's.
  const HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA | SYNCHRONIZE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) log_file = file;
  return TRUE;
}

/// UTF-8 as the wide calls of Windows take it; a character that is cut shows as U+FFFD.
const wchar_t* to_wide(const char* message, wchar_t (&wide)[message_size]) {
  if (MultiByteToWideChar(CP_UTF8, 0, message, -1, wide, message_size) == 0) wide[0] = L'\0';
  return wide;
}

/// A whole line, written at once.
void write_line_locked(const char* text, unsigned long thread) {
  if (log_file == nullptr) return;
  const ULONGLONG elapsed = GetTickCount64() - start_tick;
  char line[line_size];
  const int length = std::snprintf(line, sizeof line, "[%5llu.%03llu] [%5lu] %s\r\n", elapsed / 1000, elapsed % 1000,
                                   thread != 0 ? thread : GetCurrentThreadId(), text);
  if (length < 0) return;
  DWORD written = 0;
  WriteFile(log_file, line, std::min(static_cast<DWORD>(length), DWORD{line_size - 1}), &written, nullptr);
}

DWORD WINAPI flush(void*) {
  std::fflush(nullptr);
  return 0;
}

}  // namespace

unsigned long long log_milliseconds() {
  InitOnceExecuteOnce(&log_once, open_log, nullptr, nullptr);
  return GetTickCount64() - start_tick;
}

constinit StandstillLock log_lock;  // a leaf: nothing is taken under it

void log_line(const char* text, unsigned long thread) {
  InitOnceExecuteOnce(&log_once, open_log, nullptr, nullptr);
  const std::lock_guard guard(log_lock);
  write_line_locked(text, thread);
}

void log_message(int level, const char* format, ...) {
  if (level > log_threshold) return;
  char message[message_size];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  wchar_t wide[message_size];
  InitOnceExecuteOnce(&log_once, open_log, nullptr, nullptr);
  const std::lock_guard guard(log_lock);
  OutputDebugStringW(to_wide(message, wide));  // takes a lock of all programs: another reason not to be stopped here
  write_line_locked(message, 0);
}

void flush_streams() {
  constexpr DWORD patience_ms = 2000;
  const UniqueHandle flusher(CreateThread(nullptr, 0, flush, nullptr, 0, nullptr));
  if (flusher) WaitForSingleObject(flusher.get(), patience_ms);
}

void set_fatal_end_reporter(void (*reporter)()) { fatal_end_reporter = reporter; }

void fatal_error(const char* format, ...) {
  char message[message_size];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  log_message(0, "FATAL: %s", message);
  flush_streams();
  if (fatal_end_reporter != nullptr) fatal_end_reporter();
  wchar_t wide[message_size];
  MessageBoxW(nullptr, to_wide(message, wide), L"Velmora", MB_ICONERROR | MB_TOPMOST);
  TerminateProcess(GetCurrentProcess(), 3);
  for (;;) Sleep(INFINITE);
}

}  // namespace vlm
