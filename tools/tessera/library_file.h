// The library's file and the patch list at its end.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "support/result.h"

namespace vlm::tessera {

/// True for the bytes of this project's library, whether it ends in a list or not.
bool is_library(std::span<const std::byte> file);

/// The library's own bytes: the file without the list that it may already end in. Fails when the bytes are not
/// this project's library, by the section that holds its shims, or end in a damaged list.
Result<std::span<const std::byte>> without_patch_list(std::span<const std::byte> library);

/// The blob of the list that the library ends in; empty when there is none.
Result<std::span<const std::byte>> embedded_patch_list(std::span<const std::byte> library);

/// The library with the list behind it, in place of the one that was there.
Result<std::vector<std::byte>> with_patch_list(std::span<const std::byte> library, std::span<const std::byte> list);

}  // namespace vlm::tessera
