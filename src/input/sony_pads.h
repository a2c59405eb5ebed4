// Sony's controllers, read directly as HID devices: four slots, a reader thread for each that is taken.
//
//   free --scan_hid() opens a device--> occupied --first report--> live --a read fails--> free
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "input/hid_reports.h"

namespace vlm {

inline constexpr unsigned sony_pad_count = 4;

struct HidId {
  std::uint16_t vendor, product;
};

/// Windows' HID interface, as far as a named pipe cannot stand for a device.
struct HidSystem {
  /// Interface paths of the devices that are there.
  std::vector<std::wstring> (*present_paths)();
  std::optional<HidId> (*identify)(const wchar_t* path);
  /// HidD_GetFeature: asks for the feature report whose ID is the buffer's first byte.
  BOOLEAN(WINAPI* get_feature)(HANDLE device, void* buffer, ULONG size);
};

/// The real one; null on a system without it.
const HidSystem* windows_hid_system();

/// Gives every controller that has none and can be opened a slot and a reader, while slots are free. On one thread
/// only.
///   hid  lives until the process ends
void scan_hid(const HidSystem& hid);

/// The kind of the controller in a slot, once it has sent a report; none before and after.
PadKind live_sony_pad(unsigned slot);

/// What its last report said, or nothing when no controller is live there.
std::optional<PadInput> read_sony_pad(unsigned slot);

}  // namespace vlm
