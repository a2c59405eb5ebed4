// Tessera: writes the thread-storage patch list of a game image behind the library that will load it.
//
// macOS code reaches its thread storage through gs, which belongs to the system on Windows. Tessera finds each such
// instruction, prepares a trampoline that performs the access elsewhere, and leaves the rest to the library.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "macho/commands.h"
#include "tessera/library_file.h"
#include "tessera/patch_image.h"
#include "tessera/trampoline.h"

namespace {

using namespace vlm;
using namespace vlm::tessera;

constexpr char usage[] =
    "usage: tessera --image GameAssembly.dylib --library GameAssembly.dll --output GAME/GameAssembly.dll\n"
    "       tessera --image GameAssembly.dylib --list\n"
    "\n"
    "Finds the instructions of the macOS image that access thread storage through gs and writes a copy of the\n"
    "library that ends in the list of their replacements. The copy loads exactly this image. A list that the\n"
    "library already ends in is replaced, so --library and --output may name one file.\n"
    "\n"
    "  --image FILE    the game image: x86-64 Mach-O, thin or universal\n"
    "  --library FILE  the loader library to copy\n"
    "  --output FILE   where the copy goes\n"
    "  --list          print every instruction and its replacement\n"
    "  --help          print this text\n";

enum ExitCode { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_USAGE = 2 };

struct Options {
  const char* image = nullptr;
  const char* library = nullptr;
  const char* output = nullptr;
  bool list = false;
};

/// Nothing, after a message, when the arguments make no sense.
std::optional<Options> read_options(int count, char** arguments) {
  Options options;
  const struct {
    const char* name;
    const char** value;
  } files[] = {{"--image", &options.image}, {"--library", &options.library}, {"--output", &options.output}};
  for (int i = 1; i < count; ++i) {
    if (std::strcmp(arguments[i], "--list") == 0) {
      options.list = true;
      continue;
    }
    bool known = false;
    for (const auto& file : files) {
      if (std::strcmp(arguments[i], file.name) != 0) continue;
      known = true;
      if (i + 1 == count) {
        std::fprintf(stderr, "tessera: %s needs a file name behind it\n\n%s", file.name, usage);
        return std::nullopt;
      }
      *file.value = arguments[++i];
      break;
    }
    if (!known) {
      std::fprintf(stderr, "tessera: unknown argument '%s'\n\n%s", arguments[i], usage);
      return std::nullopt;
    }
  }
  const bool writes = options.library != nullptr || options.output != nullptr;
  const char* missing = options.image == nullptr                ? "--image"
                        : writes && options.library == nullptr  ? "--library"
                        : writes && options.output == nullptr   ? "--output"
                        : !writes && !options.list              ? "--library and --output, or --list,"
                                                                : nullptr;
  if (missing != nullptr) {
    std::fprintf(stderr, "tessera: %s is missing\n\n%s", missing, usage);
    return std::nullopt;
  }
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

std::optional<std::vector<std::byte>> read_file(const char* path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) return std::nullopt;
  std::vector<std::byte> bytes(static_cast<std::size_t>(file.tellg()));
  file.seekg(0);
  if (!bytes.empty() && !file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))) {
    return std::nullopt;
  }
  return bytes;
}

/// The whole file or none: written beside its place and moved there.
bool write_file(const char* path, const std::vector<std::byte>& bytes) {
  const std::string beside = std::string(path) + ".new";
  std::error_code error;
  {
    std::ofstream file(beside, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
      std::filesystem::remove(beside, error);
      return false;
    }
  }
  std::filesystem::rename(beside, path, error);
  if (!error) return true;
  std::filesystem::remove(beside, error);
  return false;
}

/// Reads the image's commands. The record points into `file`.
std::optional<std::string> read_image(const char* path, const std::vector<std::byte>& file, MachImage& image) {
  const auto slice = choose_slice(path, file, file.size());
  if (!slice) return slice.error().text;
  std::snprintf(image.path, sizeof image.path, "%s", path);
  image.file_data = file.data() + slice->offset;
  image.file_size = slice->size;
  if (const auto read = read_commands(image); !read) return read.error().text;
  image.base = image.vm_min;
  return std::nullopt;
}

void print_list(const MachImage& image, const ImagePatch& patch) {
  for (const auto& [site, trampoline] : patch.sites) {
    std::printf("%s: %s   %s\n", describe_place(image, site.vmaddr).c_str(), describe_bytes(site.bytes).c_str(),
                disassemble(site.bytes).c_str());
    for (const std::string& line : disassemble_trampoline(trampoline)) std::printf("    %s\n", line.c_str());
  }
}

ExitCode run(const Options& options) {
  const auto image_file = read_file(options.image);
  if (!image_file) {
    return refuse("cannot read %s (copy GameAssembly.dylib from the Mac app's Contents/Frameworks)", options.image);
  }
  MachImage image = {};
  if (const auto fault = read_image(options.image, *image_file, image)) {
    return refuse("cannot use %s: %s", options.image, fault->c_str());
  }
  const auto patch = patch_image(image);
  if (!patch) return refuse("cannot use %s: %s", options.image, patch.error().text.c_str());

  if (options.list) print_list(image, *patch);
  for (const std::string& text : patch->warnings) std::fprintf(stderr, "tessera: warning: %s\n", text.c_str());
  for (const std::string& text : patch->refusals) std::fprintf(stderr, "tessera: %s\n", text.c_str());
  if (!patch->refusals.empty()) {
    return refuse("%s has %zu instructions that cannot be replaced; nothing was written", options.image,
                  patch->refusals.size());
  }
  if (options.output == nullptr) return EXIT_DONE;

  const auto library = read_file(options.library);
  if (!library) return refuse("cannot read %s: build the library first", options.library);
  const auto patched = with_patch_list(*library, patch_list(image, *patch));
  if (!patched) return refuse("cannot use %s: %s", options.library, patched.error().text.c_str());
  if (!write_file(options.output, *patched)) {
    return refuse("cannot write %s: is the folder there, and is the game closed?", options.output);
  }
  std::printf("%s: %zu instructions of %s redirected\n", options.output, patch->sites.size(), options.image);
  return EXIT_DONE;
}

}  // namespace

int main(int count, char** arguments) {
  if (count == 2 && std::strcmp(arguments[1], "--help") == 0) {
    std::fputs(usage, stdout);
    return EXIT_DONE;
  }
  const auto options = read_options(count, arguments);
  return options ? run(*options) : EXIT_USAGE;
}
