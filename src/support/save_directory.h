// Where the game's progress is kept.
#pragma once

namespace vlm {

/// UTF-8 with '/' separators and no trailing one: VLM_SAVE_DIR, else "PCSaveData" beside the library. Made (its last
/// level only) on the first call.
const char* save_directory();

}  // namespace vlm
