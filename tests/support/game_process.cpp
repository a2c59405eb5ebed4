#include "support/game_process.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace vlm::test {
namespace {

constexpr DWORD time_limit_ms = 60'000;

/// The text as the window manager keeps it: a message to the process would wait until it answers.
std::string window_text(HWND window) {
  wchar_t wide[4096] = L"";
  char text[4096] = "";
  InternalGetWindowText(window, wide, 4096);
  WideCharToMultiByte(CP_UTF8, 0, wide, -1, text, sizeof text, nullptr, nullptr);
  return text;
}

/// Reads and dismisses the message boxes of the process, if it shows any.
void dismiss_boxes(DWORD process, Ending& ending) {
  for (HWND box = nullptr; (box = FindWindowExW(nullptr, box, L"#32770", nullptr)) != nullptr;) {
    DWORD owner = 0;
    GetWindowThreadProcessId(box, &owner);
    if (owner != process || !IsWindowVisible(box)) continue;
    std::string text;
    for (HWND label = nullptr; text.empty() && (label = FindWindowExW(box, label, L"Static", nullptr)) != nullptr;) {
      text = window_text(label);
    }
    if (text.empty()) return;  // not filled yet: the next round sees it
    if (ending.box_text.empty()) ending.box_caption = window_text(box), ending.box_text = text;
    PostMessageW(box, WM_COMMAND, IDOK, 0);
  }
}

}  // namespace

std::wstring program_path() {
  wchar_t path[1024];
  return {path, GetModuleFileNameW(nullptr, path, 1024)};
}

std::wstring program_folder() {
  const std::wstring program = program_path();
  return program.substr(0, program.find_last_of(L'\\') + 1);
}

UniqueHandle start_process(std::wstring command_line, HANDLE output) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  if (output != nullptr) {
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = output;
  }
  for (int attempt = 1; attempt <= 5; ++attempt) {
    PROCESS_INFORMATION process{};
    if (CreateProcessW(nullptr, command_line.data(), nullptr, nullptr, output != nullptr, 0, nullptr, nullptr, &startup,
                       &process)) {
      CloseHandle(process.hThread);
      return UniqueHandle(process.hProcess);
    }
    std::printf("attempt %d to start %ls: error %lu\n", attempt, command_line.c_str(), GetLastError());
    Sleep(static_cast<DWORD>(200 * attempt));
  }
  return nullptr;
}

Ending run_host(const std::wstring& arguments, const Environment& environment, const std::wstring& folder) {
  const std::wstring log_path = folder + L"PCSaveData\\loader.log";
  DeleteFileW(log_path.c_str());
  for (const auto& [name, value] : environment) SetEnvironmentVariableW(name.c_str(), value.c_str());

  Ending ending;
  const UniqueHandle process = start_process(L"\"" + program_path() + L"\" --in \"" + folder + L".\" " + arguments);
  for (const auto& [name, value] : environment) SetEnvironmentVariableW(name.c_str(), nullptr);
  if (!process) return {~0u, false, "", "the process could not be started", ""};
  const ULONGLONG deadline = GetTickCount64() + time_limit_ms;
  while (WaitForSingleObject(process.get(), 20) == WAIT_TIMEOUT) {
    dismiss_boxes(GetProcessId(process.get()), ending);
    if (GetTickCount64() > deadline) {
      ending.timed_out = true;
      TerminateProcess(process.get(), 99);
      WaitForSingleObject(process.get(), 5000);
      break;
    }
  }
  GetExitCodeProcess(process.get(), &ending.exit_code);
  ending.log = read_file(log_path);
  return ending;
}

std::string read_file(const std::wstring& path) {
  std::ifstream file(std::filesystem::path(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool write_file(const std::wstring& path, const std::string& bytes) {
  std::ofstream file(std::filesystem::path(path), std::ios::binary);
  file << bytes;
  file.close();
  return file.good();
}

}  // namespace vlm::test
