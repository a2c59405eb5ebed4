// What the tools' command lines have in common: options, --help anywhere, and what is said about mistakes.
#pragma once

#include <algorithm>
#include <cstdio>
#include <exception>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "shared/console.h"
#include "shared/exit_status.h"
#include "shared/text.h"
#include "support/result.h"

namespace vlm::tools {

/// An option that is there or not, or one that takes the argument behind it. One with two names has two rows.
struct Option {
  std::string_view name;
  std::variant<bool*, const char**> place;  // where it is kept
  const char* value = "a file name";        // what the argument behind it is, in words
};

/// Reads the arguments: options, and what stands without one, in order. Values point into `arguments`.
Result<void> read_arguments(std::span<const std::string> arguments, std::initializer_list<Option> options,
                            std::initializer_list<const char**> places);

struct Tool {
  const char* name;
  const char* usage;
};

/// A tool's main(), with its way to read the arguments behind the program's name and to do what they say.
template <class Options>
int run_tool(const Tool& tool, int count, char** values,
             Result<Options> (*read_options)(std::span<const std::string> arguments), int (*run)(const Options&)) {
  try {
    const std::vector<std::string> arguments = program_arguments(count, values);
    if (std::ranges::find(arguments, "--help") != arguments.end()) {
      std::fputs(tool.usage, stdout);
      return 0;
    }
    const Result<Options> options = read_options(arguments);
    if (options) return run(*options);
    std::fprintf(stderr, "%s: %s\n\n%s", tool.name, printable(options.error().text).c_str(), tool.usage);
    return EXIT_STATUS_USAGE;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", tool.name, printable(error.what()).c_str());
    return EXIT_STATUS_REFUSED;
  }
}

}  // namespace vlm::tools
