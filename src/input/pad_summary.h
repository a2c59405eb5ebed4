// A few inputs of all controllers together, for other native code in the process: behind the pc_pad_* exports.
#pragma once

#include "input/controller_records.h"

namespace vlm {

/// Remembers what controller `index` was last seen to say.
void update_pad_summary(unsigned index, const ControllerState& state);

}  // namespace vlm
