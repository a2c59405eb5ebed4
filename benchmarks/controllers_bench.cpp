// One look of the game at a controller against the calls of Windows that it is made of: each poll asks XInput for all
// four of its controllers first, to see whether one came or went. There is no goal for the ratio: XInput's answer for
// an absent controller takes some ten nanoseconds under Wine and far longer on Windows, where it is nearly all of a
// poll.
#include <windows.h>
#include <xinput.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "input/controller_plugin.h"
#include "input/controller_records.h"
#include "input/devices.h"
#include "report.h"
#include "support/sysv.h"

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

using GetState = DWORD(WINAPI*)(DWORD, XINPUT_STATE*);
GetState volatile get_state;

void ask_xinput(int times) {
  XINPUT_STATE state;
  for (int i = 0; i < times; ++i) get_state(i % 4, &state);
}

using Poll = SYSV vlm::ControllerState (*)(const char*);
Poll volatile poll;
float seen;

}  // namespace

int main() {
  const HMODULE xinput = LoadLibraryW(L"xinput1_4.dll");
  if (xinput == nullptr) fail("LoadLibraryW");
  get_state = reinterpret_cast<GetState>(reinterpret_cast<void*>(GetProcAddress(xinput, "XInputGetState")));
  for (const auto* symbol = vlm::controller_plugin_symbols; symbol->name != nullptr; ++symbol) {
    if (std::strcmp(symbol->name, "GameControllerWrapper_PollController") == 0) {
      poll = reinterpret_cast<Poll>(const_cast<void*>(symbol->address));
    }
  }

  const auto absent =
      vlm::bench::compare(rounds, calls, [] { ask_xinput(5); }, [] { seen += poll("xinput-0").leftThumbstickX; });
  vlm::bench::print_row("poll an absent pad; peer: XInputGetState, 5 times", "ns", absent.peer, absent.ours, "-");

  plug_in_dualsense();
  static SRWLOCK lock = SRWLOCK_INIT;
  const auto live = vlm::bench::compare(
      rounds, calls,
      [] {
        ask_xinput(4);
        AcquireSRWLockShared(&lock);
        ReleaseSRWLockShared(&lock);
      },
      [] { seen += poll("sony-0").leftThumbstickX; });
  vlm::bench::print_row("poll a DualSense; peer: XInputGetState, 4 times, a lock", "ns", live.peer, live.ours, "-");
  if (seen == 0) fail("reading the stick");
  ExitProcess(0);
}
