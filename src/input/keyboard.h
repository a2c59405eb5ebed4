// The keyboard as a controller, for players who ask for it with VLM_KEYBOARD=1.
#pragma once

#include "input/controller_records.h"

namespace vlm {

/// Part of static start-up.
void read_keyboard_setting();

bool keyboard_is_enabled();

/// Fills the inputs of a cleared state from the keys that are down, while one of the game's windows has the focus.
void read_keyboard(ControllerState& state);

}  // namespace vlm
