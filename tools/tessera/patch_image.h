// From an image to its patch list: every gs-relative instruction with its trampoline.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "macho/image.h"
#include "support/result.h"
#include "tessera/gs_sites.h"

namespace vlm::tessera {

struct PatchedSite {
  GsSite site;
  std::vector<std::byte> trampoline;
};

struct ImagePatch {
  std::vector<PatchedSite> sites;
  std::vector<std::string> refusals;  // one message per instruction that cannot be replaced: the image cannot run then
  std::vector<std::string> warnings;  // what could not be decoded
};

/// `image` has been read and has `base` set to its vm_min, so that its symbols are found by link-time addresses.
Result<ImagePatch> patch_image(const MachImage& image);

/// The list for a patch without refusals, as it is appended to the library.
std::vector<std::byte> patch_list(const MachImage& image, const ImagePatch& patch);

/// "0x7447 (_name+0x13)"
std::string describe_place(const MachImage& image, std::uint64_t vmaddr);

}  // namespace vlm::tessera
