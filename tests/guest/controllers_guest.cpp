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
// clang-format off
enum Input { home, menu, options, a, b, y, x, right_shoulder, right_trigger, left_shoulder, left_trigger, dpad_x, dpad_y,
             left_x, left_y, left_stick, right_x, right_y, right_stick, touchpad };
// clang-format on
struct ControllerState {
  float inputs[20];
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

#define PLUGIN_FUNCTION(result, name, ...) \
  const auto name = (result(*)(__VA_ARGS__))dlsym(plug_in, "GameControllerWrapper_" #name)
void* const plug_in = dlopen("/Applications/Game.app/Contents/PlugIns/GameControllerWrapper.bundle", 1);

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
void sleep_ms(uint32 ms) { windows_function<void WINDOWS(uint32)>("kernel32.dll", "Sleep")(ms); }
StandInPad* pads() { return (StandInPad*)windows_symbol("xinput1_4.dll", "stand_in_pads"); }

struct Announcement {
  int32 calls;
  ControllerInfo info;
  void* thread;
} told[2];  // what the handlers were last told: 1 that one came, 0 that one went
template <int32 which>
void handler(ControllerInfo info) {
  told[which] = {told[which].calls + 1, info, pthread_self()};
}
const auto &connected = told[1], &disconnected = told[0];
void listen() { SetConnectionHandlers(handler<1>, handler<0>); }

/// Polls until what the library's own thread finds shows.
template <class Condition>
bool soon(Condition condition) {
  for (int32 tries = 0; tries < 500; ++tries, sleep_ms(10)) {
    PollController("sony-0");
    if (condition()) return true;
  }
  return false;
}

/// At the start of a test: these pads are there, a bit for each, no others, and the game knows.
void begin_with(uint32 there) {
  memset(pads(), 0, 4 * sizeof(StandInPad));
  for (char identifier[] = "xinput-0"; identifier[7] < '4'; ++identifier[7]) PollController(identifier);
  listen();
  memset(told, 0, sizeof told);
  for (int32 index = 0; index < 4; ++index) pads()[index].connected = there >> index & 1;
  CHECK(soon([&] { return connected.calls == __builtin_popcount(there); }) && disconnected.calls == 0);
}

bool is(const ControllerInfo& info, const char* identifier) {
  const bool xbox = identifier[0] == 'x';
  return same(info.identifier, identifier) && same(info.product_category, "Xbox One") &&
         same(info.vendor_name, xbox ? "Xbox Wireless Controller" : "Keyboard") && info.flags == xbox * 0x01000000ul;
}

/// This input alone is not 0; -1: all are.
bool is_alone(const char* identifier, int32 input, float value = 0) {
  const ControllerState state = PollController(identifier);
  ControllerState expected{{}, {}, 1, 2};
  if (input >= 0) expected.inputs[input] = value;
  return memcmp(&state, &expected, sizeof state) == 0;
}

}  // namespace

// Run first: nobody has polled yet.
GUEST_TEST(what_is_there_at_the_start_is_announced_by_the_first_refresh) {
  static bool completed = false;
  listen();
  StartWirelessDiscovery([] { completed = true; });
  CHECK(completed && connected.calls == 1 && is(connected.info, "keyboard"));
  StopWirelessDiscovery();
  SetControllerLightColor("xinput-0", 1, 1, 1);
  CHECK(CreateHapticsEngine("xinput-0") == nullptr);
}

GUEST_TEST(handlers_get_the_controller_by_value_on_the_thread_that_polls) {
  begin_with(1u << 2);
  CHECK(connected.thread == pthread_self() && is(connected.info, "xinput-2"));
  pads()[2].connected = 0;
  PollController(nullptr);
  CHECK(connected.calls == 1 && disconnected.calls == 1 && is(disconnected.info, "xinput-2"));
  SetConnectionHandlers(nullptr, nullptr);
  pads()[2] = {1, 0, 0x1000, 0, 0, 0, 0, 0, 0};
  CHECK(soon([] { return PollController("xinput-2").inputs[a] == 1; }));
  listen();
  PollController("xinput-2");  // it was there when nobody listened
  CHECK(connected.calls == 1);
}

GUEST_TEST(only_controllers_that_are_there_are_asked_by_the_game) {
  *(uint32*)windows_symbol("xinput1_4.dll", "stand_in_game_thread") =
      windows_function<uint32 WINDOWS()>("kernel32.dll", "GetCurrentThreadId")();
  begin_with(1u << 1);
  for (int32 i = 0; i < 4; ++i) pads()[i].calls = 0;
  for (int32 i = 0; i < 100; ++i) PollController(i % 2 ? "xinput-1" : "xinput-2");
  CHECK(pads()[0].calls + pads()[2].calls + pads()[3].calls == 0 && pads()[1].calls == 100);
}

GUEST_TEST(the_list_holds_copies_and_announces_nothing) {
  begin_with(0);
  ControllerList list = GetConnectedControllers();
  const char* const first = list.controllers[0].identifier;
  CHECK(list.count == 1 && is(list.controllers[0], "keyboard"));
  pads()[1].connected = pads()[3].connected = 1;
  for (int32 tries = 0; tries < 500 && list.count < 3; ++tries, sleep_ms(10)) list = GetConnectedControllers();
  CHECK(list.count == 3 && is(list.controllers[0], "xinput-1") && is(list.controllers[1], "xinput-3"));
  CHECK(list.controllers[2].identifier != first && connected.calls == 0);
  free((void*)list.controllers[0].identifier);
  free(list.controllers);
}

GUEST_TEST(every_input_of_an_xinput_pad_has_its_field) {
  static constexpr int32 fields[] = {
      dpad_y,        dpad_y,         dpad_x, dpad_x, menu, options, left_stick, right_stick,
      left_shoulder, right_shoulder, -1,     -1,     a,    b,       x,          y};
  begin_with(1);
  for (int32 bit = 0; bit < 16; ++bit) {
    pads()[0].buttons = (unsigned short)(1 << bit);
    CHECK(is_alone("xinput-0", fields[bit], bit == 1 || bit == 2 ? -1 : 1));
  }
  pads()[0] = {1, 0, 0x000F, 0, 31, 0, 0, 0, 0};  // both ends of both axes of the directional pad
  CHECK(is_alone("xinput-0", right_trigger, 31 / 255.0f));
  pads()[0] = {1, 0, 0, 0, 0, 20000, 0, 0, -32768};
  const ControllerState state = PollController("xinput-0");
  CHECK(state.inputs[left_x] == (20000.0f - 7849) / 24918 && state.inputs[right_y] == -1);
  CHECK(is_alone("xinput-1", -1) && is_alone("sony-2", -1) && is_alone("xinput-4", -1) && is_alone("", -1));
}

GUEST_TEST(other_native_code_sees_a_summary) {
  const auto lateral = windows_function<float WINDOWS()>("GameAssembly.dll", "pc_pad_lateral");
  const auto held = [](const char* name) { return windows_function<int32 WINDOWS()>("GameAssembly.dll", name)(); };
  const auto sees = [&](const char* polled, int32 north, int32 south, float sideways) {
    PollController(polled);
    return held("pc_pad_north_held") == north && held("pc_pad_south_held") == south &&
           held("pc_pad_right_shoulder_held") == south && lateral() == sideways;
  };
  begin_with(1u << 1 | 1u << 2);
  pads()[1] = {1, 0, 0x8000, 0, 0, -32767, 0, 0, 0};  // Y
  pads()[2] = {1, 0, 0x1200, 0, 0, 32767, 0, 0, 0};   // A, right shoulder
  CHECK(sees("sony-0", 0, 0, 0) && sees("xinput-2", 0, 1, 1));
  CHECK(sees("xinput-1", 1, 1, -1));                  // of equals, the lower index
  pads()[1] = {1, 0, 0x0008, 0, 0, -20000, 0, 0, 0};  // the d-pad is farther out than the stick
  CHECK(sees("xinput-1", 0, 1, 1));
}

GUEST_TEST(a_glyph_has_the_style_of_its_controller) {
  const Glyph sony = GetSymbolForInputName("sony-0", 3), xbox = GetSymbolForInputName("xinput-0", 3);
  CHECK(sony.width == 96 && sony.height == 96 && sony.length > 0 && sony.zero == 0 && sony.data != xbox.data);
  CHECK(GetSymbolForInputName("sony-3", 3).data == sony.data && GetSymbolForInputName(nullptr, 3).data == xbox.data);
  CHECK(!GetSymbolForInputName("sony-0", -1).data && !GetSymbolForInputName("sony-0", 28).data);
}

/// Without the player's wish the keyboard is no controller.
extern "C" int64 keyboard_is_absent() {
  const ControllerList list = GetConnectedControllers();
  return list.controllers != nullptr && list.count == 0 ? 0 : 1;
}
