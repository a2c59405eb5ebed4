// Controllers that XInput knows. Its library is Windows' own, or one that the user has put beside the player.
#pragma once

#include <optional>

#include "input/pad_mapping.h"

namespace vlm {

inline constexpr unsigned xinput_pad_count = 4;

/// Loads XInput, so that no frame of the game has to wait for it. Any thread may, at any time.
void load_xinput();

/// What controller 0 to 3 says now, or nothing when it is not connected. Loads XInput when nobody did so before.
std::optional<XInputGamepad> read_xinput_pad(unsigned index);

}  // namespace vlm
