// An image file through the whole portable core, as the loader would take it, with fake memory and fake imports.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace vlm::test {

struct ImageRun {
  std::string fault;          // empty: the image was read, rebased and bound
  std::uint64_t extent = 0;   // 0: refused before it was placed
  std::uint64_t patched = 0;  // pointers rebased or bound
  std::uint64_t looked_up = 0;
  bool placed = false;
};

inline constexpr char run_path[] = "/games/run/libRun.dylib";

/// `max_extent` bounds the fake memory: a larger image is only read.
ImageRun run_image(std::span<const std::byte> file, std::uint64_t max_extent);

}  // namespace vlm::test
