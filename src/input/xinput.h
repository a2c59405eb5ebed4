// Controllers that XInput knows. Its library is Windows' own, or one that the user has put beside the player.
#pragma once

#include <optional>

#include "input/pad_mapping.h"

namespace vlm {

inline constexpr unsigned xinput_pad_count = 4;

/// Loads XInput. Before that no controller is there.
void load_xinput();

/// Asks for the controllers that are not there. Windows may take most of a millisecond to say that one still is not, so
/// that no thread of the game does this.
void look_for_xinput_pads();

/// What controller 0 to 3 says now, or nothing: it has not been found, or says for the first time that it is gone.
std::optional<XInputGamepad> read_xinput_pad(unsigned index);

}  // namespace vlm
