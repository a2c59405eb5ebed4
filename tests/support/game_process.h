// Starting the real library in a process of its own and seeing how it ends: exit code, message box, log.
#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "support/handles.h"

namespace vlm::test {

/// How a process ended.
struct Ending {
  DWORD exit_code = 0;
  bool timed_out = false;   // still running after the time limit, then ended by force
  std::string box_caption;  // of the first message box that it showed, empty when it showed none
  std::string box_text;
  std::string log;  // loader.log beside the library, as the process left it
};

using Environment = std::vector<std::pair<std::wstring, std::wstring>>;

std::wstring program_path();

/// Folder of the running test program, with its trailing backslash. The library under test lies there.
std::wstring program_folder();

/// Starts a program. What it prints goes to `output`, an inheritable handle, when there is one.
/// A host without memory or places for a process at that moment refuses to make one. That is no answer of the program,
/// of which nothing has run: the refusal is printed with its error and the start tried again, a few times. Null when
/// all were refused.
UniqueHandle start_process(std::wstring command_line, HANDLE output = nullptr);

/// Runs this program, the host program, with one line of arguments; dismisses its message boxes, waits until it ended.
///   folder  where the library lies, with a trailing backslash
Ending run_host(const std::wstring& arguments, const Environment& environment = {},
                const std::wstring& folder = program_folder());

/// The first of these parts that does not come in the text behind the one before; empty when all do.
inline std::string missing_part(const std::string& text, const std::vector<std::string>& parts) {
  std::size_t at = 0;
  for (const std::string& part : parts) {
    if ((at = text.find(part, at)) == std::string::npos) return part;
    at += part.size();
  }
  return {};
}

std::string read_file(const std::wstring& path);
bool write_file(const std::wstring& path, const std::string& bytes);

}  // namespace vlm::test
