// Which controllers the game believes to be connected, and its handlers for changes of that.
#pragma once

#include <array>
#include <optional>

#include "input/controller_records.h"
#include "input/xinput.h"
#include "support/sysv.h"

namespace vlm {

/// Game code.
using ConnectionHandler = SYSV void (*)(ControllerInfo controller);

/// Either may be null.
void set_connection_handlers(ConnectionHandler connected, ConnectionHandler disconnected);

/// What XInput's controllers said when they were asked whether they are there: asking costs as much as reading.
using XInputReadings = std::array<std::optional<XInputGamepad>, xinput_pad_count>;

/// Asks all devices. When `notify` is set, the game's handlers are told of each change, on this thread; otherwise a
/// change counts as announced.
XInputReadings refresh_connections(bool notify);

/// As of the last refresh.
bool was_connected(unsigned index);

}  // namespace vlm
