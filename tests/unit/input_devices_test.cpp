// Sony's controllers from the scan to the game's plug-in. A named pipe is read like a device; which devices there are
// and what they call themselves is told through a HidSystem of the test's own.
#include <windows.h>
#include <doctest/doctest.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "input/devices.h"
#include "support/handles.h"
#include "support/locks.h"

using namespace vlm;

namespace {

constexpr HidId dualshock4 = {0x054C, 0x09CC}, dualsense = {0x054C, 0x0CE6}, unreadable = {};

std::map<std::wstring, HidId> present;   // changed between scans only
std::map<std::wstring, int> identified;  // how often each device was asked what it is
SrwLock features_lock;
std::string features;  // that the readers asked for: number and size; guarded by features_lock

const HidSystem fake_hid = {
    [] {
      std::vector<std::wstring> paths;
      for (const auto& [path, id] : present) paths.push_back(path);
      return paths;
    },
    [](const wchar_t* path) {
      ++identified[path];
      return present[path].vendor != unreadable.vendor ? std::optional(present[path]) : std::nullopt;
    },
    [](HANDLE, void* buffer, ULONG size) WINAPI -> BOOLEAN {
      const std::lock_guard hold(features_lock);
      features += std::to_string(*static_cast<char*>(buffer)) + ":" + std::to_string(size) + " ";
      return FALSE;
    },
};

template <class Condition>
bool soon(Condition condition) {
  for (int tries = 0; tries < 1000 && !condition(); ++tries) Sleep(5);
  return condition();
}

/// A device that is plugged in while this lives.
class FakePad {
 public:
  FakePad(const std::wstring& name, HidId id, DWORD direction = PIPE_ACCESS_DUPLEX)
      : path(L"\\\\.\\pipe\\" + name),
        pipe_(own_handle(CreateNamedPipeW(path.c_str(), direction, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1, 4096,
                                          4096, 0, nullptr))) {
    REQUIRE(pipe_);
    present[path] = id;
  }
  ~FakePad() { present.erase(path); }

  /// Waits until the reader has taken the report: its end of the pipe would let two of them run together.
  void send(std::vector<unsigned char> report, std::size_t size) {
    report.resize(size);
    if (!ConnectNamedPipe(pipe_.get(), nullptr)) REQUIRE_EQ(GetLastError(), ERROR_PIPE_CONNECTED);
    DWORD written;
    REQUIRE(WriteFile(pipe_.get(), report.data(), static_cast<DWORD>(size), &written, nullptr));
    REQUIRE(FlushFileBuffers(pipe_.get()));
  }

  const std::wstring path;

 private:
  UniqueHandle pipe_;
};

bool live(unsigned slot) { return live_sony_pad(slot) != PadKind::none; }
bool is_at(unsigned slot, int left_x) {
  return soon([=] { return live(slot) && read_sony_pad(slot)->leftX == left_x; });
}

/// Left X, as a DualShock 4 sends it by cable.
std::vector<unsigned char> stick(unsigned char x) { return {0x01, x, 128, 128, 128, 0x28}; }

/// What the game is told of the first slot.
std::string first_pad() {
  if (!controller_is_connected(first_sony_index)) return "";
  const ControllerInfo info = controller_info(first_sony_index);
  return info.productCategory + std::string(", ") + info.vendorName;
}

}  // namespace

TEST_CASE("a Sony controller is found, read and let go") {
  {
    FakePad pad(L"vlm-pad", dualsense), older(L"vlm-older", {0x054C, 0x0268}), other(L"vlm-other", {0x046D, 0x0CE6});
    present[L"\\\\.\\pipe\\vlm-mute"] = unreadable;
    for (int scan = 0; scan < 5; ++scan) scan_hid(fake_hid);
    for (const auto& [path, times] : identified) CHECK_EQ(times, path.ends_with(L"mute") ? 3 : 1);
    CHECK_EQ(first_pad(), "");  // nothing is known of it before its first report

    pad.send(stick(200), 78);  // by radio, before it is asked for more
    REQUIRE(is_at(0, 200));
    CHECK_EQ(first_pad(), "DualSense, DualSense Wireless Controller");
    pad.send({0x31, 0, 0, 128, 128, 128, 21, 0, 0, 8}, 78);  // full report: left X 0
    REQUIRE(is_at(0, 0));
    pad.send({0x31, 0, 1, 128, 128, 128, 22}, 600);
    REQUIRE(is_at(0, 1));
  }
  present.clear();
  REQUIRE(soon([] { return !live(0); }));
  CHECK((!read_sony_pad(0) && first_pad().empty()));

  // The next device in the slot is another one, which cannot be written to.
  FakePad pad(L"vlm-next", dualshock4, PIPE_ACCESS_OUTBOUND);
  scan_hid(fake_hid);
  pad.send(stick(2), 10);
  REQUIRE(is_at(0, 2));
  CHECK_EQ(first_pad(), "DualShock 4, Wireless Controller");
  CHECK_EQ(features, "5:41 2:37 ");
}

TEST_CASE("a fifth controller waits until a slot is free") {
  REQUIRE(soon([] { return !live(0); }));
  std::vector<std::unique_ptr<FakePad>> pads;
  for (int i = 0; i < 5; ++i) pads.push_back(std::make_unique<FakePad>(L"vlm-pad-" + std::to_wstring(i), dualshock4));
  // A reader may have a moment left before its slot is free.
  const auto is_taken = [&](std::size_t pad) {
    return soon([&] { return scan_hid(fake_hid), WaitNamedPipeW(pads[pad]->path.c_str(), 1) == 0; });
  };
  REQUIRE(is_taken(3));
  for (unsigned i = 0; i < 4; ++i) {
    pads[i]->send(stick(static_cast<unsigned char>(10 + i)), 10);
    CHECK(is_at(i, 10 + static_cast<int>(i)));
  }
  pads[2].reset();
  REQUIRE(is_taken(4));
  pads[4]->send(stick(14), 10);
  CHECK(is_at(2, 14));
  pads.clear();
  REQUIRE(soon([] { return !live(0) && !live(1) && !live(2) && !live(3); }));
}
