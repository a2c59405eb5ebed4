// Redirecting the gs-relative instructions of the game image to the thread's game storage.
#pragma once

#include <cstdint>

#include "macho/image.h"

namespace vlm {

/// Applies the patch list at the end of the library's own file to an image whose path contains "GameAssembly".
/// Returns the number of patched sites; every failure is fatal. Start-up thread only, while the text is writable.
std::uint32_t gs_patch_apply(const MachImage& image);

}  // namespace vlm
