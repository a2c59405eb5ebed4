#include "input/devices.h"

#include <atomic>
#include <cstring>

#include "input/keyboard.h"
#include "tls/thread_record.h"

namespace vlm {
namespace {

constexpr DWORD xinput_interval_ms = 100;
constexpr unsigned xinput_looks_per_scan = 20;  // a scan every 2 s

constexpr const char* identifiers[controller_count] = {"xinput-0", "xinput-1", "xinput-2", "xinput-3", "sony-0",
                                                       "sony-1",   "sony-2",   "sony-3",   "keyboard"};
constexpr const char* xbox_category = "Xbox One";
constexpr std::uint64_t pad_flags = 0x01000000;

constinit std::atomic<PadKind> seen_kinds[sony_pad_count] = {};  // of the device seen last in each slot

/// Libraries are loaded and devices are opened here and not in static start-up, which runs under Windows' loader lock:
/// what these calls wait for may itself wait for that lock.
DWORD WINAPI watch_devices(void*) {
  load_xinput();
  look_for_xinput_pads();  // the next step may take long
  const HidSystem* const hid = windows_hid_system();
  for (unsigned turn = 0;; ++turn) {
    look_for_xinput_pads();
    if (hid != nullptr && turn % xinput_looks_per_scan == 0) scan_hid(*hid);
    Sleep(xinput_interval_ms);
  }
}

}  // namespace

void start_controller_input() {
  read_keyboard_setting();
  start_own_thread(watch_devices, nullptr);
}

unsigned controller_index(const char* identifier) {
  unsigned index = 0;
  while (index < controller_count && (identifier == nullptr || std::strcmp(identifiers[index], identifier) != 0)) {
    ++index;
  }
  return index;
}

ControllerInfo controller_info(unsigned index) {
  const char* const identifier = identifiers[index];
  if (index == keyboard_index) return {identifier, xbox_category, "Keyboard", 0};
  const PadKind kind = index < first_sony_index ? PadKind::none : seen_kinds[index - first_sony_index].load();
  switch (kind) {
    case PadKind::dualshock4: return {identifier, "DualShock 4", "Wireless Controller", pad_flags};
    case PadKind::dualsense: return {identifier, "DualSense", "DualSense Wireless Controller", pad_flags};
    case PadKind::none: break;
  }
  return {identifier, xbox_category, "Xbox Wireless Controller", pad_flags};
}

bool controller_is_connected(unsigned index) {
  if (index == keyboard_index) return keyboard_is_enabled();
  const PadKind kind = live_sony_pad(index - first_sony_index);
  if (kind == PadKind::none) return false;
  seen_kinds[index - first_sony_index].store(kind, std::memory_order_relaxed);
  return true;
}

}  // namespace vlm
