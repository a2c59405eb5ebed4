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

DWORD WINAPI no_pad(DWORD, XInputState*) { return ERROR_DEVICE_NOT_CONNECTED; }
DWORD WINAPI load_and_get_state(DWORD index, XInputState* state);

// XInputGetState, or what stands for it before XInput is loaded, or when there is none. Threads that load it at the
// same time find the same function, so nobody waits for another: that could be for Windows' loader lock.
constinit std::atomic<GetState*> get_state{load_and_get_state};

DWORD WINAPI load_and_get_state(DWORD index, XInputState* state) {
  load_xinput();
  return get_state.load()(index, state);
}

}  // namespace

void load_xinput() {
  HMODULE library = LoadLibraryW(L"xinput1_4.dll");
  if (library == nullptr) library = LoadLibraryW(L"xinput9_1_0.dll");
  GetState* const found = find_procedure<GetState>(library, "XInputGetState");
  get_state = found != nullptr ? found : no_pad;
}

std::optional<XInputGamepad> read_xinput_pad(unsigned index) {
  XInputState state{};
  if (get_state.load(std::memory_order_acquire)(index, &state) != ERROR_SUCCESS) return std::nullopt;
  return state.Gamepad;
}

}  // namespace vlm
