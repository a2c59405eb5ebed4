#include "port/player_folder.h"

#include <vector>

#include "shared/console.h"
#include "shared/mapped_file.h"
#include "shared/text.h"
#include "tessera/library_file.h"

namespace vlm::port {
namespace {

namespace fs = std::filesystem;

std::string name_of(const fs::path& path) { return tools::printable(tools::utf8_of(path)); }

}  // namespace

Result<PlayerFolder> recognise_player(const fs::path& place) {
  std::error_code error;
  PlayerFolder player;
  player.folder = fs::is_regular_file(place, error) ? fs::absolute(place, error).parent_path() : place;
  if (!fs::is_directory(player.folder, error)) return fault("there is no folder %s", name_of(player.folder).c_str());

  std::vector<fs::path> programs;
  fs::directory_iterator at(player.folder, error);
  if (error) return fault("the folder %s cannot be read: %s", name_of(player.folder).c_str(), error.message().c_str());
  for (const fs::directory_iterator end; !error && at != end; at.increment(error)) {
    const fs::path data = player.folder / (at->path().stem() += "_Data");
    std::error_code unknown;
    if (at->path().extension() == ".exe" && fs::is_directory(data, unknown)) programs.push_back(at->path());
  }
  if (programs.empty()) {
    return fault(
        "%s is no folder of a Windows player: it has no program with a data folder, such as Velmora.exe and "
        "Velmora_Data",
        name_of(player.folder).c_str());
  }
  if (programs.size() > 1) {
    return fault("%s holds %zu programs with a data folder; name the program", name_of(player.folder).c_str(),
                 programs.size());
  }
  player.program = programs[0];
  if (!fs::is_regular_file(player.library(), error) && !fs::is_regular_file(player.own_library(), error)) {
    return fault("%s has no GameAssembly.dll: this player does not run code of this kind",
                 name_of(player.folder).c_str());
  }
  return player;
}

bool is_our_library(const fs::path& file) {
  const auto mapped = tools::MappedFile::open(tools::utf8_of(file));
  return mapped && tessera::is_library(mapped->bytes());
}

}  // namespace vlm::port
