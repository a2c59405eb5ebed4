#include "game/controllers.h"

#include <dlfcn.h>

#include "runtime/runtime.h"
#include "runtime/text.h"

namespace {

// The plug-in's records, as its header would declare them.

struct ControllerInfo {
  const char* identifier;
  const char* product_category;
  const char* vendor_name;
  uint64_t flags;
};

struct ControllerState {
  float home, menu, options, a, b, y, x, right_shoulder, right_trigger, left_shoulder, left_trigger, dpad_x, dpad_y,
      left_x, left_y, left_stick_button, right_x, right_y, right_stick_button, touchpad_button;
  char unused[16];
  float one;
  int32_t two;
};

using Handler = void (*)(ControllerInfo);

void (*set_connection_handlers)(Handler connected, Handler disconnected);
void (*start_wireless_discovery)(void (*completion)());
ControllerState (*poll_controller)(const char* identifier);

struct Controller {
  const char* identifier;  // null: free. The texts are the plug-in's and stay.
  uint32_t pressed;        // bits, in the order of the inputs below
};
Controller controllers[9];

constexpr struct {
  const char* name;
  float ControllerState::* field;
} inputs[] = {
    {"home", &ControllerState::home},
    {"menu", &ControllerState::menu},
    {"options", &ControllerState::options},
    {"A", &ControllerState::a},
    {"B", &ControllerState::b},
    {"X", &ControllerState::x},
    {"Y", &ControllerState::y},
    {"left shoulder", &ControllerState::left_shoulder},
    {"right shoulder", &ControllerState::right_shoulder},
    {"left trigger", &ControllerState::left_trigger},
    {"right trigger", &ControllerState::right_trigger},
    {"left stick", &ControllerState::left_stick_button},
    {"right stick", &ControllerState::right_stick_button},
    {"touchpad", &ControllerState::touchpad_button},
};

void on_connected(ControllerInfo info) {
  log(Text() << "game: controller " << info.identifier << " is there: " << info.vendor_name);
  for (Controller& controller : controllers) {
    if (controller.identifier != nullptr) continue;
    controller = {info.identifier, 0};
    return;
  }
}

void on_disconnected(ControllerInfo info) {
  log(Text() << "game: controller " << info.identifier << " is gone");
  for (Controller& controller : controllers) {
    if (controller.identifier != nullptr && strcmp(controller.identifier, info.identifier) == 0) controller = {};
  }
}

template <class Function>
bool find(void* plugin, const char* name, Function*& function) {
  function = reinterpret_cast<Function*>(dlsym(plugin, name));
  return function != nullptr;
}

bool open_plugin() {
  void* const plugin = dlopen("Contents/PlugIns/GameControllerWrapper.bundle", 2);
  if (plugin == nullptr || !find(plugin, "GameControllerWrapper_SetConnectionHandlers", set_connection_handlers) ||
      !find(plugin, "GameControllerWrapper_StartWirelessDiscovery", start_wireless_discovery) ||
      !find(plugin, "GameControllerWrapper_PollController", poll_controller)) {
    log(Text() << "game: no controllers: " << dlerror());
    return false;
  }
  set_connection_handlers(on_connected, on_disconnected);
  start_wireless_discovery(nullptr);
  return true;
}

void tell_changes(Controller& controller, const ControllerState& state) {
  uint32_t bit = 1;
  for (const auto& input : inputs) {
    const bool pressed = state.*input.field > 0.5f;
    if (pressed != ((controller.pressed & bit) != 0)) {
      controller.pressed ^= bit;
      log(Text() << "game: " << controller.identifier << ": " << input.name
                 << (pressed ? " is pressed" : " is let go"));
    }
    bit <<= 1;
  }
}

}  // namespace

void poll_controllers() {
  static const bool open = open_plugin();
  if (!open) return;
  for (Controller& controller : controllers) {
    if (controller.identifier == nullptr) continue;
    const ControllerState state = poll_controller(controller.identifier);
    if (controller.identifier != nullptr) tell_changes(controller, state);  // polling may have told that it is gone
  }
}
