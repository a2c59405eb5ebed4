// Redirecting the gs-relative instructions of the game image to the thread's game storage.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "macho/image.h"
#include "support/handles.h"
#include "support/result.h"

namespace vlm {

/// A blob read from a file; `bytes` is null when there is none.
struct PatchBlob {
  UniqueHeap<std::byte> bytes;
  std::size_t size = 0;
};

/// Reads the patch list at the end of a file; no bytes when the file cannot be read or does not end in one.
PatchBlob gs_patch_read(const wchar_t* path);

/// The patch list at the end of the library's own file.
PatchBlob gs_patch_read_embedded();

/// Applies a blob to an image whose text is writable: trampolines are allocated near the image. Returns the number of
/// patched sites. `name` stands for the list in what is said about it.
Result<std::uint32_t> gs_patch_apply_blob(const MachImage& image, std::span<const std::byte> blob, const char* name);

/// Applies the patch list at the end of the library's own file to an image whose path contains "GameAssembly".
/// Returns the number of patched sites; every failure is fatal. Start-up thread only, while the text is writable.
std::uint32_t gs_patch_apply(const MachImage& image);

}  // namespace vlm
