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

#else

std::vector<std::string> program_arguments(int count, char** arguments) { return {arguments + 1, arguments + count}; }

std::filesystem::path program_folder() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

bool is_terminal(FILE* stream) { return isatty(fileno(stream)) != 0; }

#endif

bool wants_colour(FILE* stream, const std::string& when) {
  if (when != "auto") return when == "always";
  const char* const no_color = std::getenv("NO_COLOR");
  return is_terminal(stream) && (no_color == nullptr || *no_color == '\0');
}

}  // namespace vlm::tools
