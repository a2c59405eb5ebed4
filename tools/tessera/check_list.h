// Whether the list that a library ends in and a game image belong together.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "macho/image.h"
#include "support/result.h"
#include "tessera/gs_sites.h"

namespace vlm::tessera {

struct ListCheck {
  std::size_t entries = 0;
  std::size_t sites = 0;              // gs-relative instructions of the image
  std::vector<std::string> problems;  // entries that do not fit the image, instructions without an entry
  std::vector<std::string> unread;    // bytes of the image that could not be looked at
};

/// Compares a list's blob with an image; fails when the list or the image cannot be read at all. With no problem the
/// library loads the image, and none of the gs-relative instructions that could be found is left as it is.
Result<ListCheck> check_patch_list(
    const MachImage& image, std::span<const std::byte> blob, const Progress& progress = [](auto, auto) {});

}  // namespace vlm::tessera
