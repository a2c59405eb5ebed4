// From an image to its patch list: every gs-relative instruction with its trampoline.
//
// A site is replaced by a jump of 5 bytes. An instruction that has fewer takes neighbours with it: those behind it, or
// those in front of it when what follows cannot be moved, or a site beside it together with that one's neighbours.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "macho/image.h"
#include "support/result.h"
#include "tessera/gs_sites.h"
#include "tessera/trampoline.h"

namespace vlm::tessera {

inline constexpr std::size_t max_site_length = 255;  // the list has one byte for it

/// A piece of code that is replaced: whole instructions, at least one of which uses gs.
struct PatchedPiece {
  std::uint64_t vmaddr;
  std::span<const std::byte> bytes;
  Trampoline trampoline;
};

struct ImagePatch {
  std::vector<PatchedPiece> pieces;   // ascending, apart from each other
  std::size_t site_count = 0;         // gs-relative instructions in them
  std::vector<std::string> refusals;  // one message per instruction that cannot be replaced: the image cannot run then
  std::vector<std::string> unread;    // bytes that could not be looked at, one message each
};

/// `image` is as read_image() leaves it.
Result<ImagePatch> patch_image(const MachImage& image, const Progress& progress = [](auto, auto) {});

/// The list for a patch without refusals, as it is appended to the library.
std::vector<std::byte> patch_list(const MachImage& image, const ImagePatch& patch);

}  // namespace vlm::tessera
