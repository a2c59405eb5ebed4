// One look of the game at a controller against the calls of Windows that it is made of. XInput is asked only for
// controllers that are there; a stand-in beside this program has one. There is no goal for the ratio: the stand-in
// answers at once, Windows' XInput takes far longer and is nearly all of a poll.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "input/controller_plugin.h"
#include "input/controller_records.h"
#include "input/devices.h"
#include "report.h"
#include "support/sysv.h"
#include "support/xinput_stand_in.h"

namespace {

constexpr int rounds = 101, calls = 1000;
constexpr wchar_t device_path[] = L"\\\\.\\pipe\\vlm-controllers-bench";

[[noreturn]] void fail(const char* what) {
  std::printf("controllers_bench: %s failed, error %lu\n", what, GetLastError());
  std::exit(1);
}

/// A named pipe in the place of a DualSense, with one report sent.
void plug_in_dualsense() {
  static const vlm::HidSystem hid = {
      [] { return std::vector<std::wstring>{device_path}; },
      [](const wchar_t*) { return std::optional(vlm::HidId{0x054C, 0x0CE6}); },
      [](HANDLE, void*, ULONG) WINAPI -> BOOLEAN { return FALSE; },
  };
  const HANDLE pipe = CreateNamedPipeW(device_path, PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE, 1, 4096, 4096, 0, nullptr);
  if (pipe == INVALID_HANDLE_VALUE) fail("CreateNamedPipeW");
  vlm::scan_hid(hid);
  ConnectNamedPipe(pipe, nullptr);
  static constexpr unsigned char report[64] = {0x01, 200, 128, 128, 128, 0, 0, 0, 0x28};
  DWORD written;
  if (!WriteFile(pipe, report, sizeof report, &written, nullptr)) fail("WriteFile");
  while (vlm::live_sony_pad(0) == vlm::PadKind::none) Sleep(1);
}

using GetState = DWORD(WINAPI*)(DWORD, void*);
GetState volatile get_state;

using Poll = SYSV vlm::ControllerState (*)(const char*);
Poll volatile poll;
float seen;

}  // namespace

int main() {
  const HMODULE xinput = LoadLibraryW(L"xinput1_4.dll");
  const auto find = [xinput](const char* name) { return reinterpret_cast<void*>(GetProcAddress(xinput, name)); };
  get_state = reinterpret_cast<GetState>(find("XInputGetState"));
  auto* const pads = static_cast<StandInPad*>(find("stand_in_pads"));
  if (pads == nullptr) fail("finding the stand-in");
  for (const auto* symbol = vlm::controller_plugin_symbols; symbol->name != nullptr; ++symbol) {
    if (std::strcmp(symbol->name, "GameControllerWrapper_PollController") == 0) {
      poll = reinterpret_cast<Poll>(const_cast<void*>(symbol->address));
    }
  }

  const auto print = [](const char* name, vlm::bench::Pair time) {
    vlm::bench::print_row(name, "ns", time.peer, time.ours, "-");
  };
  static unsigned char state[16];
  const auto ask = [] { get_state(0, state); };
  const auto poll_xinput = [] { seen += poll("xinput-0").leftThumbstickX; };
  print("poll without a pad; peer: XInputGetState, once", vlm::bench::compare(rounds, calls, ask, poll_xinput));

  pads[0].connected = 1;
  pads[0].left_x = 20000;
  vlm::load_xinput();
  vlm::look_for_xinput_pads();
  print("poll an XInput pad; peer: the same", vlm::bench::compare(rounds, calls, ask, poll_xinput));

  plug_in_dualsense();
  static SRWLOCK lock = SRWLOCK_INIT;
  print("poll a DualSense beside it; peer: the same, and a lock", vlm::bench::compare(
                                                                      rounds, calls,
                                                                      [] {
                                                                        get_state(0, state);
                                                                        AcquireSRWLockShared(&lock);
                                                                        ReleaseSRWLockShared(&lock);
                                                                      },
                                                                      [] { seen += poll("sony-0").leftThumbstickX; }));
  if (seen == 0) fail("reading the stick");
  ExitProcess(0);
}
