// The folder of a Windows player, and what lies in it under which name.
#pragma once

#include <filesystem>
#include <string>

#include "support/result.h"

namespace vlm::port {

struct PlayerFolder {
  std::filesystem::path folder;
  std::filesystem::path program;

  std::filesystem::path library() const { return folder / "GameAssembly.dll"; }
  std::filesystem::path image() const { return folder / "GameAssembly.dylib"; }

  /// What was there before, kept once.
  std::filesystem::path own_library() const { return folder / "GameAssembly.dll.player"; }
  std::filesystem::path own_image() const { return folder / "GameAssembly.dylib.player"; }
};

/// Recognises a player by its program and the data folder of the same name. The program itself will do for the folder.
/// Fails with a sentence that says what is there instead.
Result<PlayerFolder> recognise_player(const std::filesystem::path& place);

/// True for a file of this project's library, fitted or not.
bool is_our_library(const std::filesystem::path& file);

}  // namespace vlm::port
