// A Windows library's file: its sections, and what it will have at an address. Microsoft's PE format, 64-bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "support/result.h"

namespace vlm::tools {

/// A view: the bytes must outlive it.
class PortableExecutable {
 public:
  /// Fails when the bytes are no 64-bit Windows program or library, or their section table is not whole.
  static Result<PortableExecutable> open(std::span<const std::byte> file);

  /// A section's bytes, as many of them as are used; empty when there is none of this name.
  std::span<const std::byte> section(std::string_view name) const;

  /// What the file has from an address on, to the end of its section: an address as it is when the file is loaded at
  /// its preferred base, which pointers in the file are relative to.
  std::span<const std::byte> bytes_at(std::uint64_t address) const;

 private:
  struct Section {
    std::string_view name;
    std::uint64_t address;
    std::span<const std::byte> bytes;
  };
  std::vector<Section> sections_;
};

}  // namespace vlm::tools
