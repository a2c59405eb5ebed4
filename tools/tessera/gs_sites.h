// One walk over all code of an image: the instructions that use gs, and the places that something leads to.
//
// A piece of code can be replaced by a jump as a whole only when nothing leads into its middle. What is taken for a
// way into code: branches, addresses that an instruction computes relative to rip, pointers that the image's rebases
// name, and the entries of jump tables. Starts of functions bound the ranges anyway. Return addresses count in that
// calls are never replaced, landing pads in that a compiler puts them where execution does not fall through, and such
// a place is never inside a replaced piece.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "macho/image.h"
#include "support/result.h"
#include "tessera/code_ranges.h"

namespace vlm::tessera {

/// An instruction that uses gs.
struct GsSite {
  std::uint64_t vmaddr;
  std::span<const std::byte> bytes;
  std::uint32_t range;                 // index of the range that it lies in
  std::array<std::uint8_t, 2> before;  // sizes of the instructions in front of it, nearest first; 0: the range begins
};

/// From where on a range could not be decoded, to its end.
struct Undecoded {
  std::uint64_t vmaddr;
  std::uint64_t size;
};

struct GsSearch {
  std::vector<GsSite> sites;  // in the order of the ranges
  std::vector<Undecoded> undecoded;
  std::vector<std::uint32_t> targets;  // ascending, each once; distances from vm_min

  /// True when something leads behind `begin` and before `end`, distances from vm_min.
  bool leads_inside(std::uint64_t begin, std::uint64_t end) const;
};

/// Called now and then with the bytes walked so far and in all.
using Progress = std::function<void(std::uint64_t done, std::uint64_t total)>;

/// Decodes each range from its start. Zeros up to a range's end are padding, not code. Fails when the image's rebases
/// make no sense.
Result<GsSearch> find_gs_sites(
    const MachImage& image, std::span<const CodeRange> ranges, const Progress& progress = [](auto, auto) {});

}  // namespace vlm::tessera
