#include "port/put_in_place.h"

#include <algorithm>
#include <vector>

#include "shared/console.h"
#include "shared/files.h"
#include "shared/mapped_file.h"
#include "shared/text.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace vlm::port {
namespace {

namespace fs = std::filesystem;

std::string name_of(const fs::path& path) { return tools::printable(tools::utf8_of(path)); }

bool is_there(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

fs::path temporary(const fs::path& place) { return fs::path(place) += ".new"; }

void remove_leftovers(const PlayerFolder& player) {
  std::error_code error;
  for (const fs::path& place : {player.library(), player.image(), player.own_library(), player.own_image()}) {
    fs::remove(temporary(place), error);
  }
}

/// Writes beside the place, to the disk, and reads it back.
Result<void> prepare(const fs::path& place, std::span<const std::byte> bytes) {
  const fs::path beside = temporary(place);
  if (const auto written = tools::write_through(beside, bytes); !written) {
    return fault("cannot write %s: %s", name_of(beside).c_str(), written.error().text.c_str());
  }
  const auto there = tools::MappedFile::open(tools::utf8_of(beside));
  if (!there || !std::ranges::equal(there->bytes(), bytes)) {
    return fault("%s reads otherwise than it was written: is the disk sound?", name_of(beside).c_str());
  }
  return {};
}

Result<void> move_over(const fs::path& from, const fs::path& place) {
  std::error_code error;
  fs::rename(from, place, error);
  if (!error) return {};
  return fault("cannot replace %s: %s (is the game closed?)", name_of(place).c_str(), error.message().c_str());
}

/// One of the steps: the bytes are there already, or they are moved over the place.
Result<void> replace(const fs::path& place) { return move_over(temporary(place), place); }

/// A copy of a file under another name, complete or not there.
Result<void> keep(const fs::path& file, const fs::path& place) {
  const auto bytes = tools::MappedFile::open(tools::utf8_of(file));
  if (!bytes) return fault("cannot read %s: %s", name_of(file).c_str(), bytes.error().text.c_str());
  if (auto prepared = prepare(place, bytes->bytes()); !prepared) return prepared;
  return replace(place);
}

/// Why a file cannot be replaced now, where the system tells in advance; empty when it can.
std::string holder_of(const fs::path& file) {
#ifdef _WIN32
  HANDLE opened =
      CreateFileW(file.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  if (opened != INVALID_HANDLE_VALUE) {
    CloseHandle(opened);
    return {};
  }
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_NOT_FOUND) return {};
  if (error == ERROR_SHARING_VIOLATION || error == ERROR_USER_MAPPED_FILE) {
    return name_of(file) + " is in use: close the game";
  }
  return name_of(file) + " cannot be written (error " + std::to_string(error) + ")";
#else
  (void)file;
  return {};
#endif
}

}  // namespace

Result<void> can_write(const PlayerFolder& player, std::uint64_t size) {
  for (const fs::path& file : {player.library(), player.image()}) {
    if (const std::string why = holder_of(file); !why.empty()) return fault("%s", why.c_str());
  }
  remove_leftovers(player);
  const fs::path probe = temporary(player.library());
  const auto written = tools::write_through(probe, {});
  std::error_code error;
  fs::remove(probe, error);
  if (!written) {
    return fault("cannot write into %s: %s", name_of(player.folder).c_str(), written.error().text.c_str());
  }
  const auto space = fs::space(player.folder, error);
  if (!error && space.available < size) {
    const unsigned long long needed_mb = size / 1'000'000 + 1, free_mb = space.available / 1'000'000;
    return fault("too little room on the disk of %s: %llu MB are needed, %llu MB are free",
                 name_of(player.folder).c_str(), needed_mb, free_mb);
  }
  return {};
}

Result<void> put_in_place(const PlayerFolder& player, std::span<const std::byte> library,
                          std::span<const std::byte> image, const fs::path& image_source) {
  const bool was_fitted = is_our_library(player.library());
  const bool is_first = !was_fitted && !is_there(player.own_library());
  const bool in_place = tools::is_same_file(tools::utf8_of(image_source), tools::utf8_of(player.image()));
  const auto steps = [&]() -> Result<void> {
    if (auto done = prepare(player.library(), library); !done) return done;
    if (!in_place) {
      if (auto done = prepare(player.image(), image); !done) return done;
    }
    if (is_first && is_there(player.image()) && !is_there(player.own_image())) {
      if (auto done = keep(player.image(), player.own_image()); !done) return done;
    }
    if (!was_fitted && is_there(player.library())) {
      if (auto done = keep(player.library(), player.own_library()); !done) return done;
    }
    if (was_fitted && is_there(player.own_library())) {
      const fs::path fitted = temporary(player.own_library());  // a name that leftovers are looked for under
      if (auto done = move_over(temporary(player.library()), fitted); !done) return done;
      if (auto done = keep(player.own_library(), player.library()); !done) return done;
      if (auto done = move_over(fitted, temporary(player.library())); !done) return done;
    }
    if (!in_place) {
      if (auto done = replace(player.image()); !done) return done;
    }
    return replace(player.library());
  };
  const auto done = steps();
  remove_leftovers(player);
  return done;
}

Result<void> undo(const PlayerFolder& player) {
  remove_leftovers(player);
  const bool is_fitted = !is_there(player.library()) || is_our_library(player.library());
  if (is_fitted && !is_there(player.own_library())) {
    return fault("there is no %s to bring back", name_of(player.own_library()).c_str());
  }
  if (!is_fitted && !is_there(player.own_library())) {
    return fault("nothing to undo: %s is the player's own", name_of(player.library()).c_str());
  }
  for (const fs::path& file : {player.library(), player.image()}) {
    if (const std::string why = holder_of(file); !why.empty()) return fault("%s", why.c_str());
  }
  if (is_fitted) {
    // A copy first: from here on the player's own is in place whatever happens.
    if (auto done = keep(player.own_library(), player.library()); !done) return done;
  }
  std::error_code error;
  if (is_there(player.own_image())) {
    if (auto done = move_over(player.own_image(), player.image()); !done) return done;
  } else {
    fs::remove(player.image(), error);
    if (error) return fault("cannot remove %s: %s", name_of(player.image()).c_str(), error.message().c_str());
  }
  fs::remove(player.own_library(), error);  // last: it says that there is something to undo
  if (error) return fault("cannot remove %s: %s", name_of(player.own_library()).c_str(), error.message().c_str());
  return {};
}

}  // namespace vlm::port
