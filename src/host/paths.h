// Where things are when the game starts.
#pragma once

#include <string>

#include "support/executable_path.h"

namespace vlm {

/// Sets emulated_executable_path beside the library and returns the path of the game image (UTF-8, at most 1023 bytes):
/// VLM_GAMEASSEMBLY unchanged when it exists, else "GameAssembly.dylib" beside the library.
std::string resolve_start_paths();

}  // namespace vlm
