// Finding the instructions that reach their memory through gs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tessera/code_ranges.h"

namespace vlm::tessera {

/// An instruction that uses gs.
struct GsSite {
  std::uint64_t vmaddr;
  std::span<const std::byte> bytes;
};

/// From where on a range could not be decoded, to its end.
struct Undecoded {
  std::uint64_t vmaddr;
  std::uint64_t size;
};

struct GsSearch {
  std::vector<GsSite> sites;  // in the order of the ranges
  std::vector<Undecoded> undecoded;
};

/// Decodes each range from its start. Zeros up to a range's end are padding, not code.
GsSearch find_gs_sites(std::span<const CodeRange> ranges);

}  // namespace vlm::tessera
