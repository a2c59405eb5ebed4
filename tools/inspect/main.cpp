// Says, before anything is run, what a Mach-O image would meet in a Windows process with this project's library.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/gather.h"
#include "inspect/writers.h"
#include "shared/console.h"
#include "shared/files.h"
#include "shared/progress_line.h"

namespace {

using namespace vlm;
using namespace vlm::inspect;
using namespace vlm::tools;

constexpr char usage[] =
    "usage: inspect IMAGE [--library GameAssembly.dll] [--json] [--color always|never|auto]\n"
    "\n"
    "Says what a macOS image would meet here before it is run: whether the loader takes it, who answers its imports,\n"
    "which exports it lacks, whether its accesses to thread storage can be patched, what exceptions get past.\n"
    "\n"
    "  IMAGE               a Mach-O file, thin or universal\n"
    "  -l, --library FILE  the library that the image is to run with; without it, GameAssembly.dll beside this\n"
    "                      program is taken if it is there\n"
    "      --json          print one JSON object with everything that was found\n"
    "      --color WHEN    always, never or auto: on a terminal, unless NO_COLOR is set\n"
    "      --help          print this text\n"
    "\n"
    "Exit status: 0 the image would start and everything that it asks for is there; 1 it would start, but something is\n"
    "missing (named at the end); 2 it would not start; 64 the arguments make no sense or name a file that cannot be\n"
    "read.\n";

constexpr int exit_usage = 64;

struct Options {
  const char* image = nullptr;
  const char* library = nullptr;
  const char* color = "auto";
  bool json = false;
};

/// Nothing, after a message, when the arguments make no sense.
std::optional<Options> read_options(std::span<const std::string> arguments) {
  Options options;
  const auto complain = [](const std::string& what) {
    std::fprintf(stderr, "inspect: %s\n\n%s", what.c_str(), usage);
    return std::nullopt;
  };
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view argument = arguments[i];
    const char** value = nullptr;
    if (argument == "--json") {
      options.json = true;
    } else if (argument == "-l" || argument == "--library") {
      value = &options.library;
    } else if (argument == "--color") {
      value = &options.color;
    } else if (argument.starts_with("-")) {
      return complain("unknown option '" + std::string(argument) + "'");
    } else if (options.image != nullptr) {
      return complain("one image at a time: '" + std::string(options.image) + "' or '" + std::string(argument) + "'");
    } else {
      options.image = arguments[i].c_str();
    }
    if (value == nullptr) continue;
    if (i + 1 == arguments.size()) return complain(std::string(argument) + " needs a value behind it");
    *value = arguments[++i].c_str();
  }
  if (options.image == nullptr) return complain("the image is missing");
  const std::string_view color = options.color;
  if (color != "always" && color != "never" && color != "auto") {
    return complain("--color is always, never or auto, not '" + std::string(color) + "'");
  }
  return options;
}

/// GameAssembly.dll beside this program; empty when there is none.
std::string library_beside() {
  std::error_code error;
  const auto beside = program_folder() / "GameAssembly.dll";
  return std::filesystem::exists(beside, error) ? utf8_of(beside) : std::string();
}

int run(const Options& options) {
  const auto file = read_file(options.image);
  if (!file) {
    std::fprintf(stderr, "inspect: cannot read %s\n", options.image);
    return exit_usage;
  }
  const std::string library_path = options.library != nullptr ? options.library : library_beside();
  std::optional<std::vector<std::byte>> library_file;
  Library library;
  if (!library_path.empty()) {
    library_file = read_file(library_path.c_str());
    if (!library_file) {
      std::fprintf(stderr, "inspect: cannot read %s\n", library_path.c_str());
      return exit_usage;
    }
    auto read = read_library(library_path.c_str(), *library_file);
    if (!read) {
      std::fprintf(stderr, "inspect: cannot use %s: %s\n", library_path.c_str(), read.error().text.c_str());
      return exit_usage;
    }
    library = std::move(*read);
  }
  const Facts facts = gather(options.image, *file, library_path.empty() ? nullptr : &library, ProgressLine("inspect"));
  const std::string report = options.json ? write_json(facts) : write_text(facts, wants_colour(stdout, options.color));
  std::fwrite(report.data(), 1, report.size(), stdout);
  return facts.status;
}

}  // namespace

int main(int count, char** values) {
  try {
    const std::vector<std::string> arguments = program_arguments(count, values);
    if (arguments.size() == 1 && arguments[0] == "--help") {
      std::fputs(usage, stdout);
      return 0;
    }
    const auto options = read_options(arguments);
    return options ? run(*options) : exit_usage;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "inspect: %s\n", error.what());
    return exit_usage;
  }
}
