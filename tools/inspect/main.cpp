// Says, before anything is run, what a Mach-O image would meet in a Windows process with this project's library.
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

#include "inspect/gather.h"
#include "inspect/writers.h"
#include "shared/command_line.h"
#include "shared/console.h"
#include "shared/files.h"
#include "shared/progress_line.h"
#include "shared/text.h"

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
    "  IMAGE               a Mach-O file, thin or universal, or the Mac application that holds GameAssembly.dylib\n"
    "  -l, --library FILE  the library that the image is to run with; without it, GameAssembly.dll beside this\n"
    "                      program or one folder up is taken if it is there\n"
    "      --json          print one JSON object with everything that was found\n"
    "      --color WHEN    always, never or auto: on a terminal, unless NO_COLOR is set\n"
    "      --help          print this text\n"
    "\n"
    "Exit status: 0 the image would start and everything that it asks for is there; 1 it would start, but something "
    "is\n"
    "missing (named at the end); 2 it would not start; 64 the arguments make no sense or name a file that cannot be\n"
    "read.\n";

struct Options {
  const char* image = nullptr;
  const char* library = nullptr;
  const char* color = "auto";
  bool json = false;
};

Result<Options> read_options(std::span<const std::string> arguments) {
  Options options;
  const auto read = read_arguments(arguments,
                                   {{"-l", &options.library},
                                    {"--library", &options.library},
                                    {"--json", &options.json},
                                    {"--color", &options.color, "always, never or auto"}},
                                   {&options.image});
  if (!read) return std::unexpected(read.error());
  if (options.image == nullptr) return fault("the image is missing");
  const std::string_view color = options.color;
  if (color != "always" && color != "never" && color != "auto") {
    return fault("--color is always, never or auto, not '%s'", options.color);
  }
  return options;
}

int complain(const std::string& text) {
  std::fprintf(stderr, "inspect: %s\n", printable(text).c_str());
  return EXIT_STATUS_USAGE;
}

int run(const Options& options) {
  const auto path = find_image(options.image);
  if (!path) return complain("cannot use " + std::string(options.image) + ": " + path.error().text);
  if (*path != options.image) std::fprintf(stderr, "inspect: taking %s\n", printable(*path).c_str());
  const auto file = MappedFile::open(*path);
  if (!file) return complain("cannot read " + *path + ": " + file.error().text);
  const std::string library_path = options.library != nullptr ? options.library : find_library();
  MappedFile library_file;
  Library library;
  if (!library_path.empty()) {
    auto opened = MappedFile::open(library_path);
    if (!opened) return complain("cannot read " + library_path + ": " + opened.error().text);
    library_file = std::move(*opened);
    auto read = read_library(library_path.c_str(), library_file.bytes());
    if (!read) return complain("cannot use " + library_path + ": " + read.error().text);
    library = std::move(*read);
  }
  const Facts facts =
      gather(path->c_str(), file->bytes(), library_path.empty() ? nullptr : &library, ProgressLine("inspect"));
  const std::string report = options.json ? write_json(facts) : write_text(facts, wants_colour(stdout, options.color));
  std::fwrite(report.data(), 1, report.size(), stdout);
  return facts.status;
}

}  // namespace

int main(int count, char** values) { return run_tool({"inspect", usage}, count, values, read_options, run); }
