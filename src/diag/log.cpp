#include "diag/log.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include "support/locks.h"
#include "support/text.h"

namespace vlm {
namespace {

constexpr int log_threshold = 0;
constexpr std::size_t message_size = 2048;
constexpr std::size_t line_size = 2304;

// Written once by open_log() inside log_once, then read-only. The thread-attach callback may log before
// any constructor ran, so all of this is constant-initialised.
constinit INIT_ONCE log_once = INIT_ONCE_STATIC_INIT;
constinit HANDLE log_file = nullptr;
constinit ULONGLONG start_tick = 0;

constinit void (*fatal_end_reporter)() = nullptr;  // written by static start-up

/// How many messages of one kind, that is of one format, have come. A game may do in every frame what is logged.
struct MessageKind {
  std::atomic<const char*> format;
  std::atomic<std::uint32_t> messages;
};
constexpr std::uint32_t written_of_a_kind = 250;  // room for every export there is
constinit MessageKind message_kinds[128] = {};    // several times the formats of the library; a row is never given back

constinit SrwLock log_lock;  // held around each write; a leaf: nothing is taken under it

BOOL CALLBACK open_log(PINIT_ONCE, PVOID, PVOID*) {
  start_tick = GetTickCount64();
  std::wstring path = own_module_path();
  if (path.size() >= MAX_PATH || path.find(L'\\') == std::wstring::npos) return TRUE;
  path.resize(path.find_last_of(L'\\') + 1);
  path += L"PCSaveData";
  CreateDirectoryW(path.c_str(), nullptr);
  path += L"\\loader.log";
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) log_file = file;
  return TRUE;
}

/// UTF-8 as the wide calls of Windows take it; a character that is cut shows as U+FFFD.
const wchar_t* to_wide(const char* message, wchar_t (&wide)[message_size]) {
  if (MultiByteToWideChar(CP_UTF8, 0, message, -1, wide, message_size) == 0) wide[0] = L'\0';
  return wide;
}

/// The messages of this kind, the one that comes now included.
std::uint32_t count_message(const char* format) {
  for (MessageKind& kind : message_kinds) {
    const char* taken = nullptr;
    if (kind.format.compare_exchange_strong(taken, format) || taken == format) return ++kind.messages;
  }
  return 1;
}

}  // namespace

void log_line(const char* text) {
  InitOnceExecuteOnce(&log_once, open_log, nullptr, nullptr);
  if (log_file == nullptr) return;
  const ULONGLONG elapsed = log_milliseconds();
  char line[line_size];
  const int length = std::snprintf(line, sizeof line, "[%5llu.%03llu] [%5lu] %s\r\n", elapsed / 1000, elapsed % 1000,
                                   GetCurrentThreadId(), text);
  if (length < 0) return;
  const std::lock_guard guard(log_lock);
  DWORD written = 0;
  WriteFile(log_file, line, std::min(static_cast<DWORD>(length), DWORD{line_size - 1}), &written, nullptr);
}

unsigned long long log_milliseconds() {
  InitOnceExecuteOnce(&log_once, open_log, nullptr, nullptr);
  return GetTickCount64() - start_tick;
}

void log_message(int level, const char* format, ...) {
  if (level > log_threshold) return;
  char message[message_size];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  wchar_t wide[message_size];
  OutputDebugStringW(to_wide(message, wide));
  const std::uint32_t count = count_message(format);
  if (count <= written_of_a_kind) log_line(message);
  if (count == written_of_a_kind) log_line("(more messages like the last one go to the debugger output only)");
}

void set_fatal_end_reporter(void (*reporter)()) { fatal_end_reporter = reporter; }

void fatal_error(const char* format, ...) {
  char message[message_size];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  log_message(0, "FATAL: %s", message);
  std::fflush(nullptr);
  if (fatal_end_reporter != nullptr) fatal_end_reporter();
  wchar_t wide[message_size];
  MessageBoxW(nullptr, to_wide(message, wide), L"Velmora", MB_ICONERROR | MB_TOPMOST);
  TerminateProcess(GetCurrentProcess(), 3);
  for (;;) Sleep(INFINITE);
}

}  // namespace vlm
