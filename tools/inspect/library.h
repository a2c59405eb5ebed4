// What a GameAssembly.dll has for an image: the rows of its shim table, and the patch list at its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "support/result.h"

namespace vlm::inspect {

/// Views of the library's bytes, which must outlive it.
struct Library {
  std::string path;
  std::map<std::string_view, std::string_view> family_of;  // a row's symbol -> its family
  std::size_t family_count = 0;
  std::size_t row_count = 0;
  std::span<const std::byte> patch_list;  // the blob; empty when the library ends in none
};

/// Reads a library's file. Fails when it is none, or has no table of shims where this tool looks for it.
Result<Library> read_library(const char* path, std::span<const std::byte> file);

}  // namespace vlm::inspect
