#include "shared/console.h"

#include <cstdlib>

#ifdef _WIN32
#include <windows.h>
// shellapi.h wants what windows.h brings.
#include <io.h>
#include <shellapi.h>
#else
#include <unistd.h>
#endif

namespace vlm::tools {

#ifdef _WIN32

std::vector<std::string> program_arguments(int, char**) {
  SetConsoleOutputCP(CP_UTF8);
  int count = 0;
  wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(utf8_of(wide[i]));
  LocalFree(wide);
  return arguments;
}

std::filesystem::path program_folder() {
  wchar_t path[32768];
  const DWORD length = GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)));
  return length == 0 ? std::filesystem::path() : std::filesystem::path(std::wstring(path, length)).parent_path();
}

bool is_terminal(FILE* stream) {
  const auto console = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  DWORD mode;
  return GetConsoleMode(console, &mode) && SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

bool can_ask() {
  DWORD mode;
  return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != 0;
}

namespace {

std::string read_line() {
  std::wstring line;
  HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  wchar_t character;
  DWORD count;
  while (ReadConsoleW(input, &character, 1, &count, nullptr) && count == 1 && character != L'\n') line += character;
  return utf8_of(line);
}

}  // namespace

void wait_before_the_window_closes() {
  DWORD processes[2];
  if (GetConsoleProcessList(processes, 2) != 1 || !can_ask()) return;
  std::fputs("\nPress Enter to close this window.", stdout);
  std::fflush(stdout);
  read_line();
}

#else

std::vector<std::string> program_arguments(int count, char** arguments) { return {arguments + 1, arguments + count}; }

std::filesystem::path program_folder() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

bool is_terminal(FILE* stream) { return isatty(fileno(stream)) != 0; }

bool can_ask() { return is_terminal(stdin) && is_terminal(stdout); }

namespace {

std::string read_line() {
  std::string line;
  for (int character; (character = std::getchar()) != EOF && character != '\n';) line += static_cast<char>(character);
  return line;
}

}  // namespace

void wait_before_the_window_closes() {}

#endif

std::string ask(const char* question) {
  std::fputs(question, stdout);
  std::fflush(stdout);
  std::string line = read_line();
  while (!line.empty() && (line.back() == '\r' || line.back() == '\n' || line.back() == ' ')) line.pop_back();
  if (line.size() >= 2 && (line[0] == '"' || line[0] == '\'') && line.back() == line[0]) {
    line = line.substr(1, line.size() - 2);
  }
  return line;
}

bool wants_colour(FILE* stream, const std::string& when) {
  if (when != "auto") return when == "always";
  const char* const no_color = std::getenv("NO_COLOR");
  return is_terminal(stream) && (no_color == nullptr || *no_color == '\0');
}

}  // namespace vlm::tools
