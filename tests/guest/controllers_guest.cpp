// The controller plug-in as managed code calls it: found by dlopen, records by value. A stand-in for XInput says what
// its controllers do; the keyboard is one of the game's controllers.
#include "darwin_threads.h"
#include "support/xinput_stand_in.h"

/// An export of a Windows module; set by the driver.
extern "C" void* (*windows_symbol)(const char* module, const char* name);
void* (*windows_symbol)(const char* module, const char* name) = nullptr;

namespace {

struct ControllerInfo {
  const char *identifier, *product_category, *vendor_name;
  uint64 flags;
};
struct ControllerList {
  ControllerInfo* controllers;
  int32 count;
};
struct ControllerState {
  float home, menu, options, a, b, y, x, right_shoulder, right_trigger, left_shoulder, left_trigger, dpad_x, dpad_y,
      left_x, left_y, left_stick, right_x, right_y, right_stick, touchpad;
  uint8 zeros[16];
  float one;
  int32 two;
};
static_assert(sizeof(ControllerState) == 104);
struct Glyph {
  int32 width, height;
  const void* data;
  uint32 length, zero;
};

void* plugin() { return dlopen("/Applications/Game.app/Contents/PlugIns/GameControllerWrapper.bundle", 1); }

template <class Function>
Function* plugin_function(const char* name) {
  return (Function*)dlsym(plugin(), name);
}
#define PLUGIN_FUNCTION(result, name, ...) \
  result (*name)(__VA_ARGS__) = plugin_function<result(__VA_ARGS__)>("GameControllerWrapper_" #name)

using Handler = void (*)(ControllerInfo);
PLUGIN_FUNCTION(void, SetConnectionHandlers, Handler, Handler);
PLUGIN_FUNCTION(ControllerList, GetConnectedControllers);
PLUGIN_FUNCTION(void, StartWirelessDiscovery, void (*)());
PLUGIN_FUNCTION(void, StopWirelessDiscovery);
PLUGIN_FUNCTION(ControllerState, PollController, const char*);
PLUGIN_FUNCTION(void, SetControllerLightColor, const char*, float, float, float);
PLUGIN_FUNCTION(Glyph, GetSymbolForInputName, const char*, int32);
PLUGIN_FUNCTION(void*, CreateHapticsEngine, const char*);

#define WINDOWS __attribute__((ms_abi))
template <class Function>
Function* windows_function(const char* module, const char* name) {
  return (Function*)windows_symbol(module, name);
}
auto library_function(const char* name) { return windows_function<int32 WINDOWS()>("GameAssembly.dll", name); }

StandInPad* pads() { return (StandInPad*)windows_symbol("xinput1_4.dll", "stand_in_pads"); }

/// At the start of a test: all controllers are gone, and the game knows.
struct NoPads {
  NoPads() {
    memset(pads(), 0, 4 * sizeof(StandInPad));
    static const char* const identifiers[] = {"xinput-0", "xinput-1", "xinput-2", "xinput-3"};
    for (const char* identifier : identifiers) PollController(identifier);
  }
};

// What the handlers were last told.
struct Announcement {
  int32 calls = 0;
  ControllerInfo info{};
  void* thread = nullptr;
} connected, disconnected;
void note(Announcement& announcement, ControllerInfo info) {
  ++announcement.calls;
  announcement.info = info;
  announcement.thread = pthread_self();
}
void on_connected(ControllerInfo info) { note(connected, info); }
void on_disconnected(ControllerInfo info) { note(disconnected, info); }

bool is(const ControllerInfo& info, const char* identifier, const char* category, const char* vendor, uint64 flags) {
  return strcmp(info.identifier, identifier) == 0 && strcmp(info.product_category, category) == 0 &&
         strcmp(info.vendor_name, vendor) == 0 && info.flags == flags;
}

/// A record between canaries, as a caller's stack holds one.
struct Guarded {
  uint64 before = 0x1111222233334444;
  ControllerState state;
  uint64 after = 0x5555666677778888;
  explicit Guarded(const char* identifier) {
    memset(&state, 0xEE, sizeof state);
    state = PollController(identifier);
  }
  /// Nothing but the inputs differs from a cleared record.
  bool sound() const {
    bool zero = true;
    for (uint8 byte : state.zeros) zero = zero && byte == 0;
    return before == 0x1111222233334444 && after == 0x5555666677778888 && zero && state.one == 1.0f && state.two == 2;
  }
};

bool released(const ControllerState& state) {
  static const char zeros[96] = {};
  return memcmp(&state, zeros, sizeof zeros) == 0;
}

}  // namespace

// Run first: nobody has polled yet.
GUEST_TEST(what_is_there_at_the_start_is_announced_by_the_first_refresh) {
  static bool completed = false;
  SetConnectionHandlers(on_connected, on_disconnected);
  StartWirelessDiscovery([] { completed = true; });
  CHECK(completed);
  CHECK(connected.calls == 1);
  CHECK(is(connected.info, "keyboard", "Xbox One", "Keyboard", 0));
  StartWirelessDiscovery(nullptr);
  StopWirelessDiscovery();
  CHECK(connected.calls == 1 && disconnected.calls == 0);
}

GUEST_TEST(there_are_neither_lights_nor_haptics) {
  SetControllerLightColor("xinput-0", 1, 1, 1);
  CHECK(CreateHapticsEngine("xinput-0") == nullptr);
}

GUEST_TEST(handlers_get_the_controller_by_value_on_the_thread_that_polls) {
  NoPads no_pads;
  connected = disconnected = {};
  pads()[2].connected = 1;
  PollController("sony-0");
  CHECK(connected.calls == 1 && disconnected.calls == 0);
  CHECK(connected.thread == pthread_self());
  CHECK(is(connected.info, "xinput-2", "Xbox One", "Xbox Wireless Controller", 0x01000000));
  PollController("xinput-2");
  CHECK(connected.calls == 1);

  pads()[2].connected = 0;
  PollController(nullptr);
  CHECK(connected.calls == 1 && disconnected.calls == 1);
  CHECK(is(disconnected.info, "xinput-2", "Xbox One", "Xbox Wireless Controller", 0x01000000));

  SetConnectionHandlers(nullptr, nullptr);
  pads()[2].connected = 1;
  PollController("xinput-2");
  SetConnectionHandlers(on_connected, on_disconnected);
  PollController("xinput-2");  // it was there when nobody listened
  CHECK(connected.calls == 1);
}

GUEST_TEST(the_list_holds_copies_and_announces_nothing) {
  NoPads no_pads;
  connected = disconnected = {};
  ControllerList list = GetConnectedControllers();
  CHECK(list.controllers != nullptr && list.count == 1);
  const char* const first_text = list.controllers[0].identifier;
  pads()[1].connected = pads()[3].connected = 1;
  const ControllerList more = GetConnectedControllers();
  CHECK(more.count == 3);
  CHECK(is(more.controllers[0], "xinput-1", "Xbox One", "Xbox Wireless Controller", 0x01000000));
  CHECK(is(more.controllers[1], "xinput-3", "Xbox One", "Xbox Wireless Controller", 0x01000000));
  CHECK(is(more.controllers[2], "keyboard", "Xbox One", "Keyboard", 0));
  CHECK(more.controllers[2].identifier != first_text);
  PollController("xinput-1");
  CHECK(connected.calls == 0);
  const ControllerList lists[] = {list, more};
  for (const ControllerList& taken : lists) {
    for (int32 i = 0; i < taken.count; ++i) {
      free((void*)taken.controllers[i].identifier);
      free((void*)taken.controllers[i].product_category);
      free((void*)taken.controllers[i].vendor_name);
    }
    free(taken.controllers);
  }
}

GUEST_TEST(every_input_of_an_xinput_pad_has_its_field) {
  NoPads no_pads;
  StandInPad& pad = pads()[0];
  pad.connected = 1;
  static const struct {
    uint16_t button;
    float ControllerState::* field;
    float value;
  } buttons[] = {
      {0x0001, &ControllerState::dpad_y, 1},
      {0x0002, &ControllerState::dpad_y, -1},
      {0x0004, &ControllerState::dpad_x, -1},
      {0x0008, &ControllerState::dpad_x, 1},
      {0x0010, &ControllerState::menu, 1},
      {0x0020, &ControllerState::options, 1},
      {0x0040, &ControllerState::left_stick, 1},
      {0x0080, &ControllerState::right_stick, 1},
      {0x0100, &ControllerState::left_shoulder, 1},
      {0x0200, &ControllerState::right_shoulder, 1},
      {0x1000, &ControllerState::a, 1},
      {0x2000, &ControllerState::b, 1},
      {0x4000, &ControllerState::x, 1},
      {0x8000, &ControllerState::y, 1},
  };
  for (const auto& button : buttons) {
    pad.buttons = button.button;
    Guarded polled("xinput-0");
    CHECK(polled.sound());
    CHECK(polled.state.*button.field == button.value);
    polled.state.*button.field = 0;
    CHECK(released(polled.state));
  }
  pad.buttons = 0x000F;  // both ends of both axes
  CHECK(released(PollController("xinput-0")));

  pad = {1, 0, 0, 30, 31, 20000, 0, 0, -32768};
  const Guarded polled("xinput-0");
  CHECK(polled.state.left_trigger == 0 && polled.state.right_trigger == 31 / 255.0f);
  CHECK(polled.state.left_x == (20000.0f - 7849) / 24918 && polled.state.left_y == 0);
  CHECK(polled.state.right_x == 0 && polled.state.right_y == -1);
}

GUEST_TEST(an_absent_or_unknown_controller_has_nothing_pressed) {
  NoPads no_pads;
  static const char* const identifiers[] = {"xinput-1", "sony-2", "xinput-4", "sony-", "", nullptr};
  for (const char* identifier : identifiers) {
    const Guarded polled(identifier);
    CHECK(polled.sound() && released(polled.state));
  }
}

GUEST_TEST(other_native_code_sees_a_summary) {
  NoPads no_pads;
  const auto north = library_function("pc_pad_north_held"), south = library_function("pc_pad_south_held"),
             shoulder = library_function("pc_pad_right_shoulder_held");
  const auto lateral = windows_function<float WINDOWS()>("GameAssembly.dll", "pc_pad_lateral");
  CHECK(north() == 0 && south() == 0 && shoulder() == 0 && lateral() == 0);
  for (int32 i = 0; i < 4; ++i) pads()[i].connected = 1;
  pads()[1] = {1, 0, 0x8000, 0, 0, -32767, 0, 0, 0};  // Y
  pads()[2] = {1, 0, 0x1200, 0, 0, 32767, 0, 0, 0};   // A, right shoulder
  PollController("xinput-2");
  CHECK(north() == 0 && south() == 1 && shoulder() == 1 && lateral() == 1);
  PollController("xinput-1");
  CHECK(north() == 1 && lateral() == -1);  // of equals, the lower index
  PollController("xinput-9");
  CHECK(north() == 1 && south() == 1);
  pads()[1] = {1, 0, 0x0008, 0, 0, -20000, 0, 0, 0};  // the d-pad is farther out than the stick
  PollController("xinput-1");
  CHECK(north() == 0 && lateral() == 1);
  pads()[1].connected = pads()[2].connected = 0;
  PollController("xinput-1");
  CHECK(lateral() == 1);
  PollController("xinput-2");
  CHECK(south() == 0 && shoulder() == 0 && lateral() == 0);
}

GUEST_TEST(refreshing_for_other_native_code_is_limited_and_calls_the_handlers) {
  NoPads no_pads;
  const auto refresh = library_function("pc_pad_refresh");
  const auto sleep = windows_function<void WINDOWS(uint32)>("kernel32.dll", "Sleep");
  refresh();
  sleep(550);
  connected = {};
  pads()[3].connected = 1;
  const uint32 calls = pads()[0].calls;
  refresh();
  CHECK(pads()[0].calls == calls + 1);
  CHECK(connected.calls == 1 && strcmp(connected.info.identifier, "xinput-3") == 0);
  pads()[3].connected = 0;
  refresh();
  CHECK(pads()[0].calls == calls + 1 && pads()[3].calls > 0);
}

GUEST_TEST(a_glyph_has_the_style_of_its_controller) {
  static const Glyph none{};
  const Glyph sony = GetSymbolForInputName("sony-0", 3), xbox = GetSymbolForInputName("xinput-0", 3);
  CHECK(sony.width == 96 && sony.height == 96 && sony.length > 0 && sony.zero == 0);
  CHECK(sony.data != xbox.data);
  CHECK(GetSymbolForInputName("sony-3", 3).data == sony.data);
  CHECK(GetSymbolForInputName("keyboard", 3).data == xbox.data);
  CHECK(GetSymbolForInputName("sony", 3).data == xbox.data);
  CHECK(GetSymbolForInputName(nullptr, 3).data == xbox.data);
  for (int32 number = -1; number <= 28; number += 29) {
    const Glyph glyph = GetSymbolForInputName("sony-0", number);
    CHECK(memcmp(&glyph, &none, sizeof none) == 0);
  }
}

/// Without the player's wish the keyboard is no controller.
extern "C" int64 keyboard_is_absent() {
  const ControllerList list = GetConnectedControllers();
  return list.controllers != nullptr && list.count == 0 ? 0 : 1;
}
