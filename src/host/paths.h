// The host paths that other subsystems use.
#pragma once

#include <string>

#include "support/executable_path.h"

namespace vlm {

/// Sets emulated_executable_path beside the library and returns the path of the game image (UTF-8, at most 1023 bytes):
/// VLM_GAMEASSEMBLY unchanged when it exists, else "GameAssembly.dylib" beside the library.
std::string resolve_start_paths();

/// The save directory, UTF-8 with '/' separators and no trailing one: VLM_SAVE_DIR, else "PCSaveData" beside the
/// library. Made (its last level only) on the first call.
const char* save_directory();

}  // namespace vlm
