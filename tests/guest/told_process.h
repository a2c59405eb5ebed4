// A game process of its own that tells what it does, and is ended at any moment.
#pragma once

#include <string>

#include "support/game_process.h"

namespace vlm::test {

struct ToldProcess {
  std::string told;  // what it printed
  DWORD exit_code = 0;

  static constexpr DWORD killed = 99;
};

/// Starts a probe of a guest, waits until it told `awaited` and then up to `ms` for its end, and kills it.
inline ToldProcess run_and_kill(const std::wstring& guest, const std::wstring& probe, const std::string& awaited,
                                DWORD ms) {
  const std::wstring told_path = program_folder() + guest + L".told";
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  auto told = own_handle(CreateFileW(told_path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                                     CREATE_ALWAYS, 0, nullptr));
  const UniqueHandle process =
      start_process(L"\"" + program_path() + L"\" guests\\" + guest + L".dylib " + probe, told.get());
  ToldProcess result;
  const ULONGLONG limit = GetTickCount64() + 30'000;
  while (WaitForSingleObject(process.get(), 1) == WAIT_TIMEOUT && GetTickCount64() < limit) {
    if (read_file(told_path).contains(awaited)) break;
  }
  WaitForSingleObject(process.get(), ms);
  TerminateProcess(process.get(), ToldProcess::killed);
  WaitForSingleObject(process.get(), 5000);
  GetExitCodeProcess(process.get(), &result.exit_code);
  told.reset();
  result.told = read_file(told_path);
  DeleteFileW(told_path.c_str());
  return result;
}

/// The last whole line of those that begin so; empty when there is none.
inline std::string last_line(const std::string& told, const std::string& kind = "") {
  std::string found;
  for (std::size_t at = 0, end; (end = told.find('\n', at)) != std::string::npos; at = end + 1) {
    if (told.compare(at, kind.size(), kind) == 0) found = told.substr(at, end - at);
  }
  return found;
}

}  // namespace vlm::test
