#include "input/xinput.h"

#include <windows.h>

#include <atomic>

#include "support/procedures.h"

namespace vlm {
namespace {

/// XINPUT_STATE, <xinput.h>.
struct XInputState {
  std::uint32_t dwPacketNumber;
  XInputGamepad Gamepad;
};
static_assert(sizeof(XInputState) == 16);

using GetState = DWORD WINAPI(DWORD index, XInputState* state);

/// XInputGetState, or null before XInput is loaded, or when there is none.
constinit std::atomic<GetState*> get_state{nullptr};

/// Set by who looks for controllers, cleared by who finds one gone.
constinit std::atomic<bool> is_there[xinput_pad_count] = {};

std::optional<XInputGamepad> ask(unsigned index) {
  XInputState state{};
  GetState* const function = get_state.load(std::memory_order_acquire);
  if (function == nullptr || function(index, &state) != ERROR_SUCCESS) return std::nullopt;
  return state.Gamepad;
}

}  // namespace

void load_xinput() {
  HMODULE library = LoadLibraryW(L"xinput1_4.dll");
  if (library == nullptr) library = LoadLibraryW(L"xinput9_1_0.dll");
  get_state = find_procedure<GetState>(library, "XInputGetState");
}

void look_for_xinput_pads() {
  for (unsigned index = 0; index < xinput_pad_count; ++index) {
    if (!is_there[index] && ask(index)) is_there[index] = true;
  }
}

std::optional<XInputGamepad> read_xinput_pad(unsigned index) {
  if (!is_there[index].load(std::memory_order_relaxed)) return std::nullopt;
  const auto pad = ask(index);
  if (!pad) is_there[index] = false;
  return pad;
}

}  // namespace vlm
