// The nine controllers that the game can see, by index:
//
//   0 to 3  xinput-0 to xinput-3
//   4 to 7  sony-0 to sony-3
//   8       keyboard
#pragma once

#include "input/controller_records.h"
#include "input/sony_pads.h"
#include "input/xinput.h"

namespace vlm {

inline constexpr unsigned first_sony_index = xinput_pad_count;
inline constexpr unsigned keyboard_index = first_sony_index + sony_pad_count;
inline constexpr unsigned controller_count = keyboard_index + 1;

/// Part of static start-up: from here on controllers are looked for, on a thread of its own.
void start_controller_input();

/// controller_count for null and for what names none.
unsigned controller_index(const char* identifier);

/// The texts are constants. A Sony controller's category and name are those of the device seen last.
ControllerInfo controller_info(unsigned index);

/// Of a Sony controller or the keyboard; XInput's are connected while they can be read. Remembers what a Sony
/// controller is.
bool controller_is_connected(unsigned index);

}  // namespace vlm
