// What the system gives a program: its arguments, its terminal, its place. All texts are UTF-8, on Windows too.
#pragma once

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace vlm::tools {

/// The arguments behind the program's name, and the console made ready for UTF-8.
///   count, arguments  as main() has them
std::vector<std::string> program_arguments(int count, char** arguments);

/// The folder of this program's file; empty when the system does not tell.
std::filesystem::path program_folder();

/// True when the stream is a terminal that understands escape sequences.
bool is_terminal(FILE* stream);

/// Whether a report is coloured: `when` is "always", "never" or "auto" (on a terminal, unless NO_COLOR is set).
bool wants_colour(FILE* stream, const std::string& when);

/// Whether somebody is there who can answer.
bool can_ask();

/// A line that somebody types, or pastes in quotes; empty at the end of the input.
std::string ask(const char* question);

/// When this program was double-clicked its window closes with it: waits until somebody has read it.
void wait_before_the_window_closes();

/// A path as the system has it.
inline std::filesystem::path path_of(const std::string& utf8) {
  return std::u8string_view(reinterpret_cast<const char8_t*>(utf8.data()), utf8.size());
}

inline std::string utf8_of(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

}  // namespace vlm::tools
