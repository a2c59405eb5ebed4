// One step: a game's Mac code into the folder of its Windows player.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/gather.h"
#include "inspect/library.h"
#include "macho/format.h"
#include "port/player_folder.h"
#include "port/put_in_place.h"
#include "shared/command_line.h"
#include "shared/console.h"
#include "shared/files.h"
#include "shared/progress_line.h"
#include "shared/text.h"
#include "tessera/library_file.h"
#include "tessera/patch_image.h"
#include "tls/patch_list.h"

namespace {

using namespace vlm;
using namespace vlm::port;
using namespace vlm::tools;

constexpr char usage[] =
    "usage: port PLAYER_FOLDER MAC_APP_OR_IMAGE [--library FILE] [--color always|never|auto]\n"
    "       port PLAYER_FOLDER --undo\n"
    "\n"
    "Puts a game in place: checks the Mac application's GameAssembly.dylib, fits the library to it, and puts both "
    "into\n"
    "the folder of the Windows player. The player's own GameAssembly.dll is kept as GameAssembly.dll.player. After an\n"
    "update of the game the same call does what is needed.\n"
    "\n"
    "  PLAYER_FOLDER       the folder with the player's program, such as Velmora.exe\n"
    "  MAC_APP_OR_IMAGE    the Mac application of the same version, its GameAssembly.dylib, or a folder with either\n"
    "  -l, --library FILE  the loader library; without it, GameAssembly.dll beside this program or one folder up\n"
    "      --undo          bring back what was there before\n"
    "      --color WHEN    always, never or auto: on a terminal, unless NO_COLOR is set\n"
    "      --help          print this text\n"
    "\n"
    "Exit status: 0 done; 1 done, but something is missing, as named; 2 not done, nothing was changed; 64 the\n"
    "arguments make no sense or name something that cannot be read.\n";

struct Options {
  const char* player = nullptr;
  const char* image = nullptr;
  const char* library = nullptr;
  const char* color = "auto";
  bool undo = false;
};

Result<Options> read_options(std::span<const std::string> arguments) {
  Options options;
  const auto read = read_arguments(arguments,
                                   {{"-l", &options.library},
                                    {"--library", &options.library},
                                    {"--undo", &options.undo},
                                    {"--color", &options.color, "always, never or auto"}},
                                   {&options.player, &options.image});
  if (!read) return std::unexpected(read.error());
  const std::string_view color = options.color;
  if (color != "always" && color != "never" && color != "auto") {
    return fault("--color is always, never or auto, not '%s'", options.color);
  }
  if (options.undo && options.image != nullptr) return fault("--undo needs the player's folder alone");
  const bool complete = options.player != nullptr && (options.undo || options.image != nullptr);
  if (!complete && !can_ask()) return fault("the player's folder or the Mac application is missing");
  return options;
}

/// What is said, with marks as the inspector has them.
class Speaker {
 public:
  explicit Speaker(bool coloured) : coloured_(coloured) {}

  void good(const std::string& text) const { line("32", "ok", text); }
  void note(const std::string& text) const { line("33", "--", text); }
  ExitStatus bad(const std::string& text) const {
    line("1;31", "!!", text);
    return EXIT_STATUS_REFUSED;
  }
  void more(const std::string& text) const { std::printf("      %s\n", printable(text).c_str()); }

 private:
  void line(const char* style, const char* mark, const std::string& text) const {
    if (coloured_) {
      std::printf("  \x1b[%sm%s\x1b[0m  %s\n", style, mark, printable(text).c_str());
    } else {
      std::printf("  %s  %s\n", mark, printable(text).c_str());
    }
    std::fflush(stdout);
  }
  bool coloured_;
};

/// What somebody can do about an image that would not start.
const char* advice(const inspect::Facts& facts) {
  const auto& slices = facts.format.slices;
  const bool has_intel_part = slices.empty() ? facts.format.cputype == CPU_TYPE_X86_64 || !facts.format.is_macho
                                             : std::ranges::any_of(slices, &inspect::Slice::taken);
  if (!has_intel_part) return "The Mac application has no Intel part: take a universal or an Intel build of it.";
  if (facts.format.chained_fixups) return "Take an older build of the game, or one for older Macs.";
  if (!facts.format.is_macho) return "Copy GameAssembly.dylib from the Mac application's Contents/Frameworks.";
  if (facts.thread_storage && !facts.thread_storage->refusals.empty()) {
    return "Report it, with what inspect --json and tessera --list say about this image.";
  }
  return "Copy the image again; if it stays so, report it with what inspect --json says.";
}

ExitStatus undo_in(const PlayerFolder& player, const Speaker& say) {
  if (const auto undone = undo(player); !undone) return say.bad(undone.error().text);
  say.good("the player is as it was: " + utf8_of(player.library()));
  return EXIT_STATUS_DONE;
}

ExitStatus put(const PlayerFolder& player, const std::string& image_path, const std::string& library_path,
               const Speaker& say) {
  const auto image_file = MappedFile::open(image_path);
  if (!image_file) return say.bad("cannot read " + image_path + ": " + image_file.error().text);
  const auto library_file = MappedFile::open(library_path);
  if (!library_file) return say.bad("cannot read " + library_path + ": " + library_file.error().text);
  const auto own = tessera::without_patch_list(library_file->bytes());
  if (!own) return say.bad("cannot use " + library_path + ": " + own.error().text);
  const auto library = inspect::read_library(library_path.c_str(), *own);
  if (!library) return say.bad("cannot use " + library_path + ": " + library.error().text);

  say.good("player: " + utf8_of(player.program));
  say.good("image: " + image_path);
  const auto facts =
      inspect::gather(image_path.c_str(), image_file->bytes(), &*library, ProgressLine("looking through the code"));
  if (facts.status == inspect::NOT_LOADED) {
    say.bad("this image would not start:");
    for (const std::string& reason : facts.reasons) say.more(reason);
    say.more(advice(facts));
    return EXIT_STATUS_REFUSED;
  }
  if (facts.status == inspect::SOMETHING_MISSING) {
    say.note("this image would start, but something is missing:");
    for (const std::string& reason : facts.reasons) say.more(reason);
  }

  const auto opened = open_image(image_path);
  if (!opened) return say.bad("cannot use " + image_path + ": " + opened.error().text);
  const auto patch = tessera::patch_image((*opened)->image, ProgressLine("fitting the library"));
  if (!patch) return say.bad("cannot use " + image_path + ": " + patch.error().text);
  const auto list = tessera::patch_list((*opened)->image, *patch);
  if (list.size() - gs_patch_trailer_size > max_gs_patch_blob) return say.bad("the image has too many gs accesses");
  const auto fitted = tessera::with_patch_list(*own, list);
  if (!fitted) return say.bad("cannot use " + library_path + ": " + fitted.error().text);

  constexpr std::uint64_t room_for_the_log = 1'000'000;
  std::error_code error;
  const std::uint64_t kept = std::filesystem::file_size(player.library(), error);
  const std::uint64_t size = image_file->bytes().size() + fitted->size() + (error ? 0 : kept) + room_for_the_log;
  if (const auto possible = can_write(player, size); !possible) return say.bad(possible.error().text);
  const auto done = put_in_place(player, *fitted, image_file->bytes(), path_of(image_path));
  if (!done) return say.bad(done.error().text);
  say.good("in place: the library with " + std::to_string(patch->pieces.size()) + " replacements, and the image");
  say.good("the player's own library is kept: " + utf8_of(player.own_library()));
  std::printf("\nStart %s\n", printable(utf8_of(player.program)).c_str());
  return facts.status == inspect::STARTS ? EXIT_STATUS_DONE : EXIT_STATUS_INCOMPLETE;
}

int run(const Options& options) {
  const Speaker say(wants_colour(stdout, options.color));
  std::string player_path = options.player != nullptr ? options.player : ask("Folder of the Windows player: ");
  std::string image_path = options.image != nullptr ? options.image : std::string();
  auto player = recognise_player(path_of(player_path));
  if (!player && !options.undo && !image_path.empty()) {
    // Two folders that were dropped onto the program come in any order.
    if (auto other = recognise_player(path_of(image_path))) {
      player = std::move(other);
      image_path = player_path;
    }
  } else if (!player && !options.undo && options.player != nullptr && find_image(player_path) && can_ask()) {
    image_path = player_path;
    player = recognise_player(path_of(ask("Folder of the Windows player: ")));
  }
  if (!player) {
    say.bad(player.error().text);
    return EXIT_STATUS_USAGE;
  }
  if (options.undo) return undo_in(*player, say);
  if (image_path.empty()) image_path = ask("Mac application, or its GameAssembly.dylib: ");
  const auto image = find_image(image_path);
  if (!image) {
    say.bad("cannot use " + image_path + ": " + image.error().text);
    return EXIT_STATUS_USAGE;
  }
  const std::string library = options.library != nullptr ? options.library : find_library();
  if (library.empty()) {
    say.bad("GameAssembly.dll is neither beside this program nor one folder up: name it with --library");
    return EXIT_STATUS_USAGE;
  }
  return put(*player, *image, library, say);
}

}  // namespace

int main(int count, char** values) {
  const int status = run_tool({"port", usage}, count, values, read_options, run);
  wait_before_the_window_closes();
  return status;
}
