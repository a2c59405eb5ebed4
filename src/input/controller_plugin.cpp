#include "input/controller_plugin.h"

#include <cstdlib>
#include <cstring>

#include "binding/shim_table.h"
#include "input/connections.h"
#include "input/controller_records.h"
#include "input/devices.h"
#include "input/glyph_shapes.h"
#include "input/glyphs.h"
#include "input/keyboard.h"
#include "input/pad_summary.h"
#include "support/sysv.h"

namespace vlm {
namespace {

SYSV void set_handlers(ConnectionHandler connected, ConnectionHandler disconnected) {
  set_connection_handlers(connected, disconnected);
}

/// The array and its texts become the caller's, who gives them back with free. Nobody is told of changes seen here.
SYSV ControllerList get_connected_controllers() {
  refresh_connections(false);
  // Room for all, so that there is an array even for none. A text is null when memory is out.
  ControllerList list{static_cast<ControllerInfo*>(std::calloc(controller_count, sizeof(ControllerInfo))), 0};
  if (list.controllers == nullptr) return list;
  for (unsigned index = 0; index < controller_count; ++index) {
    if (!was_connected(index)) continue;
    const ControllerInfo info = controller_info(index);
    list.controllers[list.count++] = {::strdup(info.identifier), ::strdup(info.productCategory),
                                      ::strdup(info.vendorName), info.flags};
  }
  return list;
}

/// Controllers are looked for all the time; the search that the game asks for is over at once.
SYSV void start_wireless_discovery(SYSV void (*completion)()) {
  refresh_connections(true);
  if (completion != nullptr) completion();
}
SYSV void stop_wireless_discovery() {}

/// What the controller says now; nothing is pressed on one that is absent.
SYSV ControllerState poll_controller(const char* identifier) {
  ControllerState state{};
  const unsigned index = controller_index(identifier);
  const XInputReadings xinput = refresh_connections(true);
  if (index == controller_count) return state;
  if (index == keyboard_index) {
    read_keyboard(state);
  } else if (index >= first_sony_index) {
    if (const auto input = read_sony_pad(index - first_sony_index)) map_sony_pad(*input, state);
  } else if (xinput[index]) {
    map_xinput_pad(*xinput[index], state);
  }
  update_pad_summary(index, state);
  return state;
}

SYSV void set_light_color() {}
SYSV void* create_haptics_engine() { return nullptr; }

SYSV ControllerGlyph get_symbol_for_input(const char* identifier, std::uint32_t input) {
  const bool sony_style = identifier != nullptr && std::strncmp(identifier, "sony-", 5) == 0;
  std::uint32_t length = 0;
  const void* const png = glyph_png(sony_style, input, &length);
  return png != nullptr ? ControllerGlyph{glyph_size, glyph_size, png, length, 0} : ControllerGlyph{};
}

constexpr double version = 1.0;

}  // namespace

const PluginSymbol controller_plugin_symbols[] = {
    {"GameControllerWrapper_SetConnectionHandlers", shim(set_handlers)},
    {"GameControllerWrapper_GetConnectedControllers", shim(get_connected_controllers)},
    {"GameControllerWrapper_StartWirelessDiscovery", shim(start_wireless_discovery)},
    {"GameControllerWrapper_StopWirelessDiscovery", shim(stop_wireless_discovery)},
    {"GameControllerWrapper_PollController", shim(poll_controller)},
    {"GameControllerWrapper_SetControllerLightColor", shim(set_light_color)},
    {"GameControllerWrapper_GetSymbolForInputName", shim(get_symbol_for_input)},
    {"GameControllerWrapper_CreateHapticsEngine", shim(create_haptics_engine)},
    {"GameControllerWrapperVersionNumber", shim(&version)},
    {},
};

}  // namespace vlm
