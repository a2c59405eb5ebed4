#include "reports/crash_dump.h"

#include <dbghelp.h>

#include <cstdio>
#include <string>

#include "diag/log.h"
#include "support/handles.h"
#include "support/procedures.h"
#include "support/save_directory.h"
#include "support/text.h"

namespace vlm {
namespace {

bool is_wanted = false;  // written by static start-up

/// Null when it is written, else what failed.
const char* write_dump(const wchar_t* path, MINIDUMP_EXCEPTION_INFORMATION& exception) {
  using WriteDump = BOOL WINAPI(HANDLE, DWORD, HANDLE, MINIDUMP_TYPE, MINIDUMP_EXCEPTION_INFORMATION*, void*, void*);
  auto* const write = find_procedure<WriteDump>(LoadLibraryExW(L"dbghelp.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32),
                                                "MiniDumpWriteDump");
  if (write == nullptr) return "the system has no dbghelp.dll that writes one";
  const UniqueHandle file =
      own_handle(CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  if (!file) return "the file cannot be made";
  const auto kind = static_cast<MINIDUMP_TYPE>(MiniDumpWithDataSegs | MiniDumpWithThreadInfo);
  if (write(GetCurrentProcess(), GetCurrentProcessId(), file.get(), kind, &exception, nullptr, nullptr)) return nullptr;
  return "writing failed, perhaps for want of space";
}

}  // namespace

void set_up_crash_dump() { is_wanted = read_environment(L"VLM_CRASH_DUMP").text.starts_with('1'); }

bool wants_crash_dump() { return is_wanted; }

void write_crash_dump(DWORD thread, EXCEPTION_RECORD& record, CONTEXT& context) {
  const std::wstring path = make_data_directory() + L"\\crash.dmp";
  EXCEPTION_POINTERS pointers{&record, &context};
  MINIDUMP_EXCEPTION_INFORMATION exception{thread, &pointers, FALSE};
  const char* const fault = write_dump(path.c_str(), exception);
  char line[160];
  if (fault == nullptr) {
    std::snprintf(line, sizeof line, "[dump] written: PCSaveData\\crash.dmp");
  } else {
    std::snprintf(line, sizeof line, "[dump] PCSaveData\\crash.dmp is not written: %s (error %lu)", fault,
                  GetLastError());
    DeleteFileW(path.c_str());
  }
  log_line(line, thread);
}

}  // namespace vlm
