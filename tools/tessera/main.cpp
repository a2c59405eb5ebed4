// Tessera: writes the thread-storage patch list of a game image behind the library that will load it.
//
// macOS code reaches its thread storage through gs, which belongs to the system on Windows. Tessera finds each such
// instruction, prepares a trampoline that performs the access elsewhere, and leaves the rest to the library.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "shared/command_line.h"
#include "shared/files.h"
#include "shared/progress_line.h"
#include "tessera/check_list.h"
#include "tessera/instruction.h"
#include "tessera/library_file.h"
#include "tessera/patch_image.h"
#include "tessera/trampoline.h"
#include "tls/patch_list.h"

namespace {

using namespace vlm;
using namespace vlm::tessera;
using namespace vlm::tools;

constexpr char usage[] =
    "usage: tessera IMAGE --library GameAssembly.dll -o OUT     write a library that loads this image\n"
    "       tessera IMAGE --library GameAssembly.dll --check    compare the library's list with the image\n"
    "       tessera IMAGE --list                                show each place, before and after\n"
    "\n"
    "Finds the instructions of the macOS image that access thread storage through gs and writes a copy of the\n"
    "library that ends in the list of their replacements. The copy loads exactly this image. A list that the\n"
    "library already ends in is replaced, so --library and -o may name one file.\n"
    "\n"
    "  IMAGE               the game image, GameAssembly.dylib: x86-64 Mach-O, thin or universal\n"
    "  -l, --library FILE  the loader library\n"
    "  -o, --output FILE   where the copy goes\n"
    "      --check         writes nothing; says what of the library's list does not fit the image\n"
    "      --list          print every replaced piece of code and its replacement\n"
    "      --help          print this text\n"
    "\n"
    "Exit status: 0 done; 1 a file cannot be used, an instruction cannot be replaced, or the check found a\n"
    "difference (each is named, nothing is written); 2 the arguments make no sense.\n";

enum ExitCode { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_USAGE = 2 };

struct Options {
  const char* image = nullptr;
  const char* library = nullptr;
  const char* output = nullptr;
  bool list = false;
  bool check = false;
};

Result<Options> read_options(std::span<const std::string> arguments) {
  Options options;
  const auto read = read_arguments(arguments,
                                   {{"-l", &options.library},
                                    {"--library", &options.library},
                                    {"-o", &options.output},
                                    {"--output", &options.output},
                                    {"--check", &options.check},
                                    {"--list", &options.list}},
                                   options.image);
  if (!read) return std::unexpected(read.error());
  if (options.check && options.output != nullptr) return fault("--check writes nothing, so -o makes no sense");
  if (options.check && options.list) return fault("--check and --list say different things: one at a time");
  const bool needs_library = options.check || options.output != nullptr;
  if (needs_library && options.library == nullptr) return fault("--library is missing");
  if (!options.list && !options.check && options.output == nullptr) return fault("-o, --check or --list is missing");
  return options;
}

[[gnu::format(__printf__, 1, 2)]] ExitCode refuse(const char* format, ...) {
  std::fputs("tessera: ", stderr);
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stderr, format, arguments);
  va_end(arguments);
  std::fputs("\n", stderr);
  return EXIT_REFUSED;
}

/// One line each, and of a long list only its beginning.
void complain_of(const std::vector<std::string>& problems, const char* kind) {
  constexpr std::size_t shown = 50;
  for (std::size_t i = 0; i < std::min(problems.size(), shown); ++i) {
    std::fprintf(stderr, "tessera: %s%s\n", kind, problems[i].c_str());
  }
  if (problems.size() > shown) std::fprintf(stderr, "tessera: %s... and %zu more\n", kind, problems.size() - shown);
}

void print_list(const MachImage& image, const ImagePatch& patch) {
  for (const PatchedPiece& piece : patch.pieces) {
    std::printf("%s\n", describe_place(image, piece.vmaddr).c_str());
    for (std::size_t at = 0; at < piece.bytes.size();) {
      const auto rest = piece.bytes.subspan(at);
      const auto bytes = rest.first(decode(rest)->size());
      std::printf("    %-34s%s\n", describe_bytes(bytes).c_str(), disassemble(bytes, piece.vmaddr + at).c_str());
      at += bytes.size();
    }
    std::puts("  becomes");
    for (const std::string& line : disassemble_trampoline(piece.trampoline)) std::printf("    %s\n", line.c_str());
  }
}

/// Asks whether the library's list and the image belong together.
ExitCode check(const Options& options, const MachImage& image, std::span<const std::byte> library) {
  const auto list = embedded_patch_list(library);
  if (!list) return refuse("cannot use %s: %s", options.library, list.error().text.c_str());
  if (list->empty()) return refuse("%s ends in no patch list: write one with -o", options.library);
  const auto check = check_patch_list(image, *list, ProgressLine("tessera"));
  if (!check) return refuse("cannot check %s: %s", options.library, check.error().text.c_str());
  complain_of(check->problems, "");
  if (!check->problems.empty()) return refuse("%s was not made for %s", options.library, options.image);
  std::printf("%s: its %zu entries replace all %zu gs-relative instructions of %s\n", options.library, check->entries,
              check->sites, options.image);
  return EXIT_DONE;
}

/// Finds the pieces to replace, shows them, and writes the library as asked.
ExitCode patch(const Options& options, const MachImage& image, std::span<const std::byte> library) {
  const auto patch = patch_image(image, ProgressLine("tessera"));
  if (!patch) return refuse("cannot use %s: %s", options.image, patch.error().text.c_str());
  if (options.list) print_list(image, *patch);
  complain_of(patch->warnings, "warning: ");
  for (const std::string& text : patch->refusals) std::fprintf(stderr, "tessera: %s\n", text.c_str());
  if (!patch->refusals.empty()) {
    return refuse("%zu of the %zu gs-relative instructions of %s cannot be replaced; nothing was written",
                  patch->refusals.size(), patch->site_count, options.image);
  }
  if (options.output == nullptr) return EXIT_DONE;

  const auto list = patch_list(image, *patch);
  if (list.size() - gs_patch_trailer_size > max_gs_patch_blob) {
    return refuse("the list for %s would have %zu bytes, more than the library reads", options.image, list.size());
  }
  const auto patched = with_patch_list(library, list);
  if (!patched) return refuse("cannot use %s: %s", options.library, patched.error().text.c_str());
  if (!write_file(options.output, *patched)) {
    return refuse("cannot write %s: is the folder there, and is the game closed?", options.output);
  }
  std::printf("%s: %zu instructions of %s redirected\n", options.output, patch->site_count, options.image);
  return EXIT_DONE;
}

int run(const Options& options) {
  const auto image_file = read_file(options.image);
  if (!image_file) {
    return refuse("cannot read %s (copy GameAssembly.dylib from the Mac app's Contents/Frameworks)", options.image);
  }
  MachImage image = {};
  if (const auto fault = read_image(options.image, *image_file, image)) {
    return refuse("cannot use %s: %s", options.image, fault->c_str());
  }
  std::vector<std::byte> library;
  if (options.library != nullptr) {
    auto file = read_file(options.library);
    if (!file) return refuse("cannot read %s: build the library first", options.library);
    library = std::move(*file);
  }
  return options.check ? check(options, image, library) : patch(options, image, library);
}

}  // namespace

int main(int count, char** values) {
  return run_tool({"tessera", usage, EXIT_USAGE, EXIT_REFUSED}, count, values, read_options, run);
}
