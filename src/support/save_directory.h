// Where the log is written and the game's progress is kept.
#pragma once

#include <string>

namespace vlm {

/// The folder "PCSaveData" beside the library, made when it is not there: a host path without a separator at its end.
/// Empty when Windows does not tell where the library is.
std::wstring make_data_directory();

/// UTF-8 with '/' separators and no trailing one: VLM_SAVE_DIR, else "PCSaveData" beside the library. Made (its last
/// level only) on the first call.
const char* save_directory();

}  // namespace vlm
