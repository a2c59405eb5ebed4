// Files into the player's folder and out of it again, so that the folder can be played with at every moment.
//
//   before     GameAssembly.dll         the player's own
//   1          GameAssembly.dll.player  a copy of it;          GameAssembly.dll is the player's own
//   2          GameAssembly.dylib       the image;             GameAssembly.dll is the player's own and takes no notice
//   3          GameAssembly.dll         the fitted library;    done
//
// Each step moves a file, written in full and checked before, over its place: whoever stops this leaves what was before
// a step or what is behind it, and a rest under a temporary name, which the next run removes. When an older fitted
// library is there, the player's own takes its place between the steps, for the two would not fit.
#pragma once

#include <cstddef>
#include <span>

#include "port/player_folder.h"
#include "support/result.h"

namespace vlm::port {

/// Fails with a sentence when the files of the player could not be replaced now; changes nothing.
///   size  of what will be written
Result<void> can_write(const PlayerFolder& player, std::uint64_t size);

/// The three steps.
///   image_source  where the image's bytes are from; may be its place in the player's folder
Result<void> put_in_place(const PlayerFolder& player, std::span<const std::byte> library,
                          std::span<const std::byte> image, const std::filesystem::path& image_source);

/// Back to what was there before. Saved games and the log stay. Fails when nothing was kept.
Result<void> undo(const PlayerFolder& player);

}  // namespace vlm::port
