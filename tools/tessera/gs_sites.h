// Over all code of an image: the instructions that use gs, and the places that something leads to.
//
// A piece of code can be replaced by a jump as a whole only when nothing leads into its middle. What is taken for a
// way into code: branches, addresses that an instruction names, pointers that the image's rebases name, and the
// entries of jump tables. Starts of functions bound the ranges anyway. Return addresses count in that calls are never
// replaced, landing pads in that a compiler puts them where execution does not fall through, and such a place is never
// inside a replaced piece.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "macho/image.h"
#include "support/result.h"
#include "tessera/code_map.h"
#include "tessera/code_walk.h"

namespace vlm::tessera {

struct GsSearch {
  explicit GsSearch(const CodeMap& map) : targets(map) {}

  std::vector<GsSite> sites;      // ascending
  std::vector<CodeRange> unread;  // ascending: code, perhaps, that nobody could look at
  TargetSet targets;
  std::vector<std::uint32_t> fixups;  // ascending: where the loader changes the bytes of code

  /// True when something leads behind `begin` and before `end`, distances from vm_min.
  bool leads_inside(std::uint32_t begin, std::uint32_t end) const;
  /// True when the loader writes a pointer into these bytes.
  bool is_fixed_up(std::uint32_t begin, std::uint32_t end) const;
};

/// Called now and then, on the calling thread, with the bytes walked so far and in all.
using Progress = std::function<void(std::uint64_t done, std::uint64_t total)>;

/// Decodes all code, on all processors. Zeros up to a range's end are padding, not code. Fails when the image's fixups
/// make no sense.
Result<GsSearch> find_gs_sites(
    const MachImage& image, const CodeMap& map, const Progress& progress = [](auto, auto) {});

/// "12 bytes at 0x1000 (_f+0x4) do not decode ...": what the search has not looked at, one line each.
std::vector<std::string> describe_unread(const MachImage& image, const GsSearch& search);

}  // namespace vlm::tessera
