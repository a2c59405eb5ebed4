// Sony's controllers from the scan to the game's plug-in. A named pipe is read like a device; which
// devices there are and what they call themselves is told through a HidSystem of the test's own.
#include <windows.h>
#include <doctest/doctest.h>

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "input/connections.h"
#include "input/controller_plugin.h"
#include "input/devices.h"
#include "support/locks.h"
#include "support/sysv.h"
#include "vlm.h"

using namespace vlm;

namespace {

constexpr HidId dualshock4 = {0x054C, 0x09CC}, dualsense = {0x054C, 0x0CE6};
constexpr HidId older_sony = {0x054C, 0x0268}, other_maker = {0x046D, 0x0CE6};

struct Attributes {
  HidId id;
  bool readable = true;
};
std::vector<std::pair<std::wstring, Attributes>> present;  // changed between scans only
std::map<std::wstring, int> identified;                    // how often each device was asked what it is

std::vector<std::wstring> present_paths() {
  std::vector<std::wstring> paths;
  for (const auto& [path, attributes] : present) paths.push_back(path);
  return paths;
}
std::optional<HidId> identify(const wchar_t* path) {
  ++identified[path];
  for (const auto& [present_path, attributes] : present) {
    if (present_path == path && attributes.readable) return attributes.id;
  }
  return std::nullopt;
}

// What the readers ask for, in order.
SrwLock features_lock;
std::vector<std::string> features;  // guarded by features_lock
BOOLEAN WINAPI get_feature(HANDLE, void* buffer, ULONG size) {
  std::lock_guard hold(features_lock);
  features.emplace_back(static_cast<const char*>(buffer), size);
  return FALSE;
}
/// The request for a feature report.
std::string request(char id, std::size_t size) { return id + std::string(size - 1, 0); }
const HidSystem fake_hid = {present_paths, identify, get_feature};

template <class Condition>
bool soon(Condition condition) {
  for (int tries = 0; tries < 1000 && !condition(); ++tries) Sleep(5);
  return condition();
}

/// A device that is plugged in while this lives.
class FakePad {
 public:
  FakePad(const std::wstring& name, HidId id, DWORD direction = PIPE_ACCESS_DUPLEX) : path_(L"\\\\.\\pipe\\" + name) {
    pipe_ = CreateNamedPipeW(path_.c_str(), direction, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, 1, 4096,
                             4096, 0, nullptr);
    REQUIRE_NE(pipe_, INVALID_HANDLE_VALUE);
    present.push_back({path_, {id}});
  }
  ~FakePad() {
    std::erase_if(present, [&](const auto& device) { return device.first == path_; });
    CloseHandle(pipe_);
  }
  FakePad(const FakePad&) = delete;

  /// Waits until the reader has taken the report: its end of the pipe would let two of them run together.
  void send(std::vector<unsigned char> report, std::size_t size = 0) {
    if (size != 0) report.resize(size);
    if (!ConnectNamedPipe(pipe_, nullptr)) REQUIRE_EQ(GetLastError(), ERROR_PIPE_CONNECTED);
    DWORD written;
    REQUIRE(WriteFile(pipe_, report.data(), static_cast<DWORD>(report.size()), &written, nullptr));
    REQUIRE(FlushFileBuffers(pipe_));
  }
  const std::wstring& path() const { return path_; }

 private:
  std::wstring path_;
  HANDLE pipe_;
};

bool live(unsigned slot) { return live_sony_pad(slot) != PadKind::none; }

/// Left X, as a DualShock 4 sends it by cable.
std::vector<unsigned char> stick_report(unsigned char x) { return {0x01, x, 128, 128, 128, 0x28, 0, 0, 0, 0}; }

template <class Function>
Function plugin_function(const char* name) {
  for (const PluginSymbol* symbol = controller_plugin_symbols; symbol->name != nullptr; ++symbol) {
    if (std::strcmp(symbol->name, name) == 0) {
      return reinterpret_cast<Function>(const_cast<void*>(symbol->address));
    }
  }
  return nullptr;
}
ControllerState poll(const char* identifier) {
  return plugin_function<SYSV ControllerState (*)(const char*)>("GameControllerWrapper_PollController")(identifier);
}

/// At a test's end: everything is unplugged, and the readers have noticed.
struct AllFree {
  ~AllFree() {
    present.clear();
    CHECK(soon([] { return !live(0) && !live(1) && !live(2) && !live(3); }));
    set_connection_handlers(nullptr, nullptr);
    for (const char* identifier : {"sony-0", "sony-1", "sony-2", "sony-3"}) poll(identifier);
  }
};

std::string told;  // by the game's handlers
SYSV void on_connected(ControllerInfo info) {
  told += std::string("+") + info.identifier + " " + info.productCategory + ", " + info.vendorName + "; ";
}
SYSV void on_disconnected(ControllerInfo info) {
  told += std::string("-") + info.identifier + " " + info.productCategory + "; ";
}

}  // namespace

TEST_CASE("a Sony controller is found, read, announced and let go") {
  AllFree all_free;
  told.clear();
  identified.clear();
  features.clear();
  set_connection_handlers(on_connected, on_disconnected);
  {
    FakePad pad(L"vlm-pad", dualsense);
    FakePad others[] = {{L"vlm-older", older_sony}, {L"vlm-other", other_maker}};
    present.push_back({L"\\\\.\\pipe\\vlm-mute", {dualsense, false}});
    scan_hid(fake_hid);
    CHECK(std::string(controller_info(first_sony_index).productCategory) == "Xbox One");
    poll("sony-0");
    CHECK_EQ(told, "");  // nothing is known of it before its first report

    pad.send(stick_report(200));  // by radio, before it is asked for more
    REQUIRE(soon([] { return live(0); }));
    ControllerState state = poll("sony-0");
    CHECK_EQ(told, "+sony-0 DualSense, DualSense Wireless Controller; ");
    CHECK_EQ(state.leftThumbstickX, 72.5f / 127.5f);
    CHECK_EQ(state.buttonA, 1.0f);
    CHECK_EQ(pc_pad_south_held(), 1);
    CHECK_EQ(pc_pad_lateral(), 72.5f / 127.5f);

    pad.send({0x31, 0, 0, 128, 128, 128, 21, 0, 0, 8}, 78);  // full report: left X 0
    REQUIRE(soon([] { return read_sony_pad(0)->leftX == 0; }));
    pad.send({0x31, 0, 77}, 63);  // too short
    pad.send({0x42, 77}, 64);     // of no known ID
    pad.send({0x31, 0, 1, 128, 128, 128, 21, 0, 0, 8}, 600);
    REQUIRE(soon([] { return read_sony_pad(0)->leftX == 1; }));
    state = poll("sony-0");
    CHECK_EQ(state.leftThumbstickX, -126.5f / 127.5f);
    CHECK_EQ(state.leftTrigger, 21 / 255.0f);
    CHECK_EQ(pc_pad_south_held(), 0);

    scan_hid(fake_hid);
    CHECK_EQ(identified[pad.path()], 1);  // one that has a slot is left in peace
    for (const FakePad& other : others) CHECK_EQ(identified[other.path()], 2);
    CHECK((features == std::vector{request(0x05, 41)}));
  }
  REQUIRE(soon([] { return !live(0); }));
  const ControllerState state = poll("sony-0");
  CHECK_EQ(state.leftThumbstickX, 0);
  CHECK(told.ends_with("; -sony-0 DualSense; "));
  CHECK_EQ(pc_pad_lateral(), 0);

  // The next device in the slot is another one, which cannot be written to.
  told.clear();
  FakePad pad(L"vlm-pad", dualshock4, PIPE_ACCESS_OUTBOUND);
  present[0].second.id = dualshock4;
  REQUIRE(soon([&] {
    scan_hid(fake_hid);
    return identified[pad.path()] > 1;
  }));
  pad.send(stick_report(0));
  REQUIRE(soon([] { return live(0); }));
  poll("keyboard");
  CHECK_EQ(told, "+sony-0 DualShock 4, Wireless Controller; ");
  CHECK((features.back() == request(0x02, 37)));
}

TEST_CASE("a fifth controller waits until a slot is free") {
  AllFree all_free;
  std::vector<std::unique_ptr<FakePad>> pads;
  for (int i = 0; i < 5; ++i) pads.push_back(std::make_unique<FakePad>(L"vlm-pad-" + std::to_wstring(i), dualshock4));
  scan_hid(fake_hid);
  for (unsigned i = 0; i < 4; ++i) {
    pads[i]->send(stick_report(static_cast<unsigned char>(10 + i)));
    REQUIRE(soon([&] { return live(i); }));
    CHECK_EQ(read_sony_pad(i)->leftX, 10 + i);
  }
  pads[2].reset();
  REQUIRE(soon([] { return !live(2); }));
  // The reader may have a moment left before its slot is free.
  REQUIRE(soon([&] {
    scan_hid(fake_hid);
    return WaitNamedPipeW(pads[4]->path().c_str(), 1) == 0;  // its only instance is taken
  }));
  pads[4]->send(stick_report(14));
  REQUIRE(soon([] { return live(2); }));
  CHECK_EQ(read_sony_pad(2)->leftX, 14);
  CHECK_EQ(poll("sony-2").leftThumbstickX, -113.5f / 127.5f);
}

TEST_CASE("a device that cannot be opened or has an endless name takes no slot for good") {
  AllFree all_free;
  identified.clear();
  present = {{L"\\\\.\\pipe\\vlm-gone", {dualsense}}, {L"\\\\.\\pipe\\" + std::wstring(503, L'x'), {dualsense}}};
  REQUIRE(soon([] {
    scan_hid(fake_hid);
    return identified[present[0].first] > 1;  // its slot was free again
  }));
  CHECK_EQ(identified.count(present[1].first), 0);
  CHECK_FALSE(live(0));
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
