// Tessera: writes the thread-storage patch list of a game image behind the library that will load it.
//
// macOS code reaches its thread storage through gs, which belongs to the system on Windows. Tessera finds each such
// instruction, prepares a trampoline that performs the access elsewhere, and leaves the rest to the library.
#include <algorithm>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "shared/command_line.h"
#include "shared/files.h"
#include "shared/progress_line.h"
#include "shared/text.h"
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
    "usage: tessera IMAGE [--library GameAssembly.dll] -o OUT     write a library that loads this image\n"
    "       tessera IMAGE [--library GameAssembly.dll] --check    compare the library's list with the image\n"
    "       tessera IMAGE --list                                  show each place, before and after\n"
    "\n"
    "Finds the instructions of the macOS image that access thread storage through gs and writes a copy of the\n"
    "library that ends in the list of their replacements. The copy loads exactly this image. A list that the\n"
    "library already ends in is replaced, so --library and -o may name one file.\n"
    "\n"
    "  IMAGE               the game image, GameAssembly.dylib: x86-64 Mach-O, thin or universal; or the Mac\n"
    "                      application that holds it\n"
    "  -l, --library FILE  the loader library; without it, GameAssembly.dll beside this program or one folder up\n"
    "  -o, --output FILE   where the copy goes; what is there already must be such a copy\n"
    "      --check         writes nothing; says what of the library's list does not fit the image\n"
    "      --list          print every replaced piece of code and its replacement\n"
    "      --help          print this text\n"
    "\n"
    "Exit status: 0 done; 1 done, but some bytes of code could not be looked at (each place is named); 2 a file\n"
    "cannot be used, an instruction cannot be replaced, or the check found a difference (each is named, nothing is\n"
    "written); 64 the arguments make no sense or name a file that cannot be read.\n";

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
                                   {&options.image});
  if (!read) return std::unexpected(read.error());
  if (options.image == nullptr) return fault("the image is missing");
  if (options.check && options.output != nullptr) return fault("--check writes nothing, so -o makes no sense");
  if (options.check && options.list) return fault("--check and --list say different things: one at a time");
  if (!options.list && !options.check && options.output == nullptr) return fault("-o, --check or --list is missing");
  return options;
}

ExitStatus complain(ExitStatus status, const std::string& text) {
  std::fprintf(stderr, "tessera: %s\n", printable(text).c_str());
  return status;
}

ExitStatus refuse(const std::string& text) { return complain(EXIT_STATUS_REFUSED, text); }

/// One line each, and of a long list only its beginning.
void complain_of(const std::vector<std::string>& problems, const char* kind) {
  constexpr std::size_t shown = 50;
  for (std::size_t i = 0; i < std::min(problems.size(), shown); ++i) {
    std::fprintf(stderr, "tessera: %s%s\n", kind, printable(problems[i]).c_str());
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

/// Names what could not be looked at. The status of work that is done otherwise.
ExitStatus done_but_for(const std::vector<std::string>& unread) {
  complain_of(unread, "warning: ");
  return unread.empty() ? EXIT_STATUS_DONE : EXIT_STATUS_INCOMPLETE;
}

/// Asks whether the library's list and the image belong together.
ExitStatus check(const std::string& image_path, const MachImage& image, const std::string& library_path,
                 std::span<const std::byte> library) {
  const auto list = embedded_patch_list(library);
  if (!list) return refuse("cannot use " + library_path + ": " + list.error().text);
  if (list->empty()) return refuse(library_path + " ends in no patch list: write one with -o");
  const auto check = check_patch_list(image, *list, ProgressLine("tessera"));
  if (!check) return refuse("cannot check " + library_path + ": " + check.error().text);
  complain_of(check->problems, "");
  const ExitStatus status = done_but_for(check->unread);
  if (!check->problems.empty()) return refuse(library_path + " was not made for " + image_path);
  std::printf("%s: its %zu entries replace all %zu gs-relative instructions of %s%s\n", printable(library_path).c_str(),
              check->entries, check->sites, printable(image_path).c_str(),
              status == EXIT_STATUS_DONE ? "" : " that could be found");
  return status;
}

/// Why a file must not be written to; null when nothing forbids it.
std::optional<std::string> forbids_output(const std::string& output, const std::string& image) {
  if (is_same_file(output, image)) return "-o names the image: " + output;
  const auto there = MappedFile::open(output);
  if (!there || there->bytes().empty() || is_library(there->bytes())) return std::nullopt;
  return output + " is there already and is not this project's library: keep it under another name first";
}

/// Finds the pieces to replace, shows them, and writes the library as asked.
ExitStatus patch(const Options& options, const std::string& image_path, const MachImage& image,
                 const std::string& library_path, MappedFile library) {
  const auto patch = patch_image(image, ProgressLine("tessera"));
  if (!patch) return refuse("cannot use " + image_path + ": " + patch.error().text);
  if (options.list) print_list(image, *patch);
  const ExitStatus status = done_but_for(patch->unread);
  complain_of(patch->refusals, "");
  if (!patch->refusals.empty()) {
    return refuse(std::to_string(patch->refusals.size()) + " of the " + std::to_string(patch->site_count) +
                  " gs-relative instructions of " + image_path + " cannot be replaced; nothing was written");
  }
  if (options.output == nullptr) return status;

  const auto list = patch_list(image, *patch);
  if (list.size() - gs_patch_trailer_size > max_gs_patch_blob) {
    return refuse("the list for " + image_path + " would have " + std::to_string(list.size()) +
                  " bytes, more than the library reads");
  }
  const auto patched = with_patch_list(library.bytes(), list);
  if (!patched) return refuse("cannot use " + library_path + ": " + patched.error().text);
  library = {};  // -o may name it, and Windows replaces no file that is mapped
  if (!write_file(options.output, *patched)) {
    return refuse("cannot write " + std::string(options.output) + ": is the folder there, and is the game closed?");
  }
  std::printf("%s: %zu instructions of %s redirected\n", printable(options.output).c_str(), patch->site_count,
              printable(image_path).c_str());
  return status;
}

int run(const Options& options) {
  const auto path = find_image(options.image);
  if (!path) return complain(EXIT_STATUS_USAGE, "cannot use " + std::string(options.image) + ": " + path.error().text);
  if (*path != options.image) complain(EXIT_STATUS_DONE, "taking " + *path);
  if (const auto file = MappedFile::open(*path); !file) {
    return complain(EXIT_STATUS_USAGE, "cannot read " + *path + ": " + file.error().text +
                                           " (copy GameAssembly.dylib from the Mac app's Contents/Frameworks)");
  }
  const auto image = open_image(*path);
  if (!image) return refuse("cannot use " + *path + ": " + image.error().text);

  const std::string library_path = options.library != nullptr ? options.library : find_library();
  MappedFile library;
  if (options.check || options.output != nullptr) {
    if (library_path.empty()) return complain(EXIT_STATUS_USAGE, "--library is missing");
    auto file = MappedFile::open(library_path);
    if (!file) return complain(EXIT_STATUS_USAGE, "cannot read " + library_path + ": " + file.error().text);
    library = std::move(*file);
    if (const auto own = without_patch_list(library.bytes()); !own) {
      return refuse("cannot use " + library_path + ": " + own.error().text);
    }
  }
  if (options.output != nullptr) {
    if (const auto why = forbids_output(options.output, *path)) return refuse(*why);
  }
  return options.check ? check(*path, (*image)->image, library_path, library.bytes())
                       : patch(options, *path, (*image)->image, library_path, std::move(library));
}

}  // namespace

int main(int count, char** values) { return run_tool({"tessera", usage}, count, values, read_options, run); }
