// Sony's controllers from the scan to the game's plug-in, and glyphs. A named pipe is read like a device; which devices
// there are and what they call themselves is told through a HidSystem of the test's own.
#include <windows.h>
#include <doctest/doctest.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "input/connections.h"
#include "input/devices.h"
#include "input/glyphs.h"
#include "input/pad_mapping.h"
#include "support/handles.h"
#include "support/locks.h"
#include "support/sysv.h"

using namespace vlm;

namespace {

constexpr HidId dualshock4 = {0x054C, 0x09CC}, dualsense = {0x054C, 0x0CE6}, unreadable = {};

std::map<std::wstring, HidId> present;   // changed between scans only
std::map<std::wstring, int> identified;  // how often each device was asked what it is
SrwLock features_lock;
std::vector<std::string> features;  // that the readers asked for; guarded by features_lock

const HidSystem fake_hid = {
    [] {
      std::vector<std::wstring> paths;
      for (const auto& [path, id] : present) paths.push_back(path);
      return paths;
    },
    [](const wchar_t* path) {
      ++identified[path];
      const HidId id = present[path];
      return id.vendor != unreadable.vendor ? std::optional(id) : std::nullopt;
    },
    [](HANDLE, void* buffer, ULONG size) WINAPI -> BOOLEAN {
      const std::lock_guard hold(features_lock);
      features.emplace_back(static_cast<const char*>(buffer), size);
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
      : path(L"\\\\.\\pipe\\" + name), direction_(direction) {
    make();
    present[path] = id;
  }
  ~FakePad() {
    present.erase(path);
    CloseHandle(pipe_);
  }
  FakePad(const FakePad&) = delete;

  /// Waits until the reader has taken the report: its end of the pipe would let two of them run together.
  void send(std::vector<unsigned char> report, std::size_t size) {
    report.resize(size);
    if (!ConnectNamedPipe(pipe_, nullptr)) REQUIRE_EQ(GetLastError(), ERROR_PIPE_CONNECTED);
    DWORD written;
    REQUIRE(WriteFile(pipe_, report.data(), static_cast<DWORD>(size), &written, nullptr));
    REQUIRE(FlushFileBuffers(pipe_));
  }

  /// For the next who opens it.
  void be_free() {
    CloseHandle(pipe_);
    make();
  }

  const std::wstring path;

 private:
  void make() {
    pipe_ = CreateNamedPipeW(path.c_str(), direction_, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, 1, 4096,
                             4096, 0, nullptr);
    REQUIRE_NE(pipe_, INVALID_HANDLE_VALUE);
  }

  DWORD direction_;
  HANDLE pipe_;
};

bool live(unsigned slot) { return live_sony_pad(slot) != PadKind::none; }

/// Left X, as a DualShock 4 sends it by cable.
std::vector<unsigned char> stick(unsigned char x) { return {0x01, x, 128, 128, 128, 0x28}; }

std::string told;  // by the game's handlers
SYSV void on_connected(ControllerInfo info) {
  told += std::string("+") + info.identifier + " " + info.productCategory + ", " + info.vendorName + "; ";
}
SYSV void on_disconnected(ControllerInfo info) {
  told += std::string("-") + info.identifier + " " + info.productCategory + "; ";
}

}  // namespace

TEST_CASE("a Sony controller is found, read, announced and let go") {
  set_connection_handlers(on_connected, on_disconnected);
  {
    FakePad pad(L"vlm-pad", dualsense), older(L"vlm-older", {0x054C, 0x0268}), other(L"vlm-other", {0x046D, 0x0CE6});
    present[L"\\\\.\\pipe\\vlm-mute"] = unreadable;
    present[L"\\\\.\\pipe\\" + std::wstring(503, L'x')] = dualsense;  // an endless name
    for (int scan = 0; scan < 5; ++scan) scan_hid(fake_hid);
    for (const auto& [path, times] : identified) CHECK_EQ(times, path.ends_with(L"mute") ? 3 : 1);
    CHECK_EQ(identified.size(), 4);
    refresh_connections(true);
    CHECK_EQ(told, "");  // nothing is known of it before its first report

    pad.send(stick(200), 78);  // by radio, before it is asked for more
    REQUIRE(soon([] { return live(0); }));
    refresh_connections(true);
    CHECK_EQ(told, "+sony-0 DualSense, DualSense Wireless Controller; ");
    CHECK((read_sony_pad(0)->leftX == 200 && read_sony_pad(0)->buttons0 == 0x28));
    pad.send({0x31, 0, 0, 128, 128, 128, 21, 0, 0, 8}, 78);  // full report: left X 0
    REQUIRE(soon([] { return read_sony_pad(0)->leftX == 0; }));
    pad.send({0x31, 0, 77}, 63);  // too short
    pad.send({0x42, 77}, 64);     // of no known ID
    pad.send({0x31, 0, 1, 128, 128, 128, 22}, 600);
    REQUIRE(soon([] { return read_sony_pad(0)->leftX == 1; }));
    CHECK_EQ(read_sony_pad(0)->leftTrigger, 22);
  }
  present.clear();
  REQUIRE(soon([] { return !live(0); }));
  refresh_connections(true);
  CHECK(told.ends_with("; -sony-0 DualSense; "));
  CHECK_FALSE(read_sony_pad(0));

  // The next device in the slot is another one, which cannot be written to; a program lets it go after two scans.
  told.clear();
  FakePad pad(L"vlm-next", dualshock4, PIPE_ACCESS_OUTBOUND);
  UniqueHandle other(CreateFileW(pad.path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  for (int scan = 0; scan < 2; ++scan) scan_hid(fake_hid);
  other.reset();
  pad.be_free();
  scan_hid(fake_hid);
  CHECK_EQ(identified[pad.path], 1);
  pad.send(stick(0), 10);
  REQUIRE(soon([] { return live(0); }));
  refresh_connections(true);
  CHECK_EQ(told, "+sony-0 DualShock 4, Wireless Controller; ");
  const auto request = [](char id, std::size_t size) { return id + std::string(size - 1, 0); };
  CHECK((features == std::vector{request(0x05, 41), request(0x02, 37)}));
  set_connection_handlers(nullptr, nullptr);
}

TEST_CASE("a fifth controller waits until a slot is free") {
  REQUIRE(soon([] { return !live(0); }));
  std::vector<std::unique_ptr<FakePad>> pads;
  for (int i = 0; i < 5; ++i) pads.push_back(std::make_unique<FakePad>(L"vlm-pad-" + std::to_wstring(i), dualshock4));
  // A reader may have a moment left before its slot is free.
  REQUIRE(soon([&] { return scan_hid(fake_hid), WaitNamedPipeW(pads[3]->path.c_str(), 1) == 0; }));
  for (unsigned i = 0; i < 4; ++i) {
    pads[i]->send(stick(static_cast<unsigned char>(10 + i)), 10);
    REQUIRE(soon([&] { return live(i); }));
    CHECK_EQ(read_sony_pad(i)->leftX, 10 + i);
  }
  pads[2].reset();
  REQUIRE(soon([&] { return scan_hid(fake_hid), WaitNamedPipeW(pads[4]->path.c_str(), 1) == 0; }));
  pads[4]->send(stick(14), 10);
  REQUIRE(soon([] { return live(2); }));
  CHECK_EQ(read_sony_pad(2)->leftX, 14);
  pads.clear();
  REQUIRE(soon([] { return !live(0) && !live(1) && !live(2) && !live(3); }));
}

TEST_CASE("Windows' own list of devices can be read") {
  const HidSystem* const hid = windows_hid_system();
  REQUIRE(hid != nullptr);
  for (const std::wstring& path : hid->present_paths()) {
    CHECK(path.starts_with(L"\\\\"));
    hid->identify(path.c_str());
  }
  CHECK_FALSE(hid->identify(L"\\\\.\\pipe\\vlm-absent"));
}

TEST_CASE("a glyph whose letters cannot be drawn is drawn by a later request") {
  std::vector<HGDIOBJ> all;  // that Windows gives a process
  while (const HGDIOBJ object = CreateSolidBrush(static_cast<COLORREF>(all.size()))) all.push_back(object);
  std::uint32_t length = 1;
  CHECK((glyph_png(true, 0, &length) == nullptr && length == 0));
  for (const HGDIOBJ object : all) DeleteObject(object);
  const void* const drawn = glyph_png(true, 0, &length);
  CHECK((drawn != nullptr && length == 37028 && glyph_png(true, 0, &length) == drawn));
}
