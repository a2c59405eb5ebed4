#include "input/sony_pads.h"

#include <algorithm>
#include <atomic>
#include <cwchar>
#include <iterator>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "support/handles.h"
#include "support/locks.h"
#include "tls/thread_record.h"

namespace vlm {
namespace {

constexpr std::size_t max_path_units = 511;

/// The scan alone occupies a free slot; its reader alone writes to an occupied one and frees it.
struct PadSlot {
  SrwLock lock;
  std::atomic<PadKind> kind{PadKind::none};  // written under the lock; none: free
  std::atomic<bool> live{false};             // written under the lock: input holds a report
  wchar_t path[max_path_units + 1] = L"";    // guarded by lock
  PadInput input{};                          // guarded by lock
  const HidSystem* hid = nullptr;            // the scan's, for the reader
  UniqueHandle device;                       // the same
};
/// Never destroyed: readers run until the process is gone.
[[clang::no_destroy]] constinit PadSlot slots[sony_pad_count];

bool holds(PadSlot& slot, const std::wstring& path) {
  std::shared_lock hold(slot.lock);
  return slot.kind != PadKind::none && path == slot.path;
}

void free_slot(PadSlot& slot) {
  std::lock_guard hold(slot.lock);
  slot.live = false;
  slot.path[0] = 0;
  slot.kind = PadKind::none;
}

UniqueHandle open_device(const wchar_t* path) {
  // Another program may keep writing to itself.
  for (const DWORD access : {GENERIC_READ | GENERIC_WRITE, GENERIC_READ}) {
    const HANDLE device =
        CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    if (device != INVALID_HANDLE_VALUE) return UniqueHandle(device);
  }
  return nullptr;
}

/// By radio, a controller that was asked for this feature report (calibration) sends full reports from then on; by
/// cable it does so anyway. The answer is not needed.
void request_full_reports(const HidSystem& hid, HANDLE device, PadKind kind) {
  const bool dualsense = kind == PadKind::dualsense;
  std::uint8_t report[41] = {dualsense ? std::uint8_t{0x05} : std::uint8_t{0x02}};
  hid.get_feature(device, report, dualsense ? 41 : 37);
}

void read_reports(PadSlot& slot) {
  const PadKind kind = slot.kind;
  const UniqueHandle device = std::move(slot.device);
  request_full_reports(*slot.hid, device.get(), kind);
  std::byte report[max_report_size];
  DWORD size = 0;
  while (ReadFile(device.get(), report, sizeof report, &size, nullptr) && size != 0) {
    const auto input = read_hid_report(kind, std::span(report, size));
    if (!input) continue;
    std::lock_guard hold(slot.lock);
    slot.input = *input;
    slot.live = true;
  }
}

DWORD WINAPI run_reader(void* slot) {
  read_reports(*static_cast<PadSlot*>(slot));
  free_slot(*static_cast<PadSlot*>(slot));
  return 0;
}

void occupy(PadSlot& slot, const std::wstring& path, PadKind kind, const HidSystem& hid, UniqueHandle device) {
  {
    std::lock_guard hold(slot.lock);
    std::wmemcpy(slot.path, path.c_str(), path.size() + 1);
    slot.hid = &hid;
    slot.device = std::move(device);
    slot.kind = kind;
  }
  if (start_own_thread(run_reader, &slot)) return;
  slot.device.reset();
  free_slot(slot);
}

/// What the devices that are there said they are. Each is asked once, and one that gives no answer a few times: opening
/// a device wakes some of them up.
class KnownDevices {
 public:
  void forget_all_but(const std::vector<std::wstring>& present) {
    std::erase_if(devices_,
                  [&](const auto& device) { return std::ranges::find(present, device.first) == present.end(); });
  }
  PadKind kind_of(const std::wstring& path, const HidSystem& hid) {
    Device& device = devices_[path];
    if (device.questions == 0) return device.kind;
    --device.questions;
    if (const auto id = hid.identify(path.c_str())) device = {pad_kind(id->vendor, id->product), 0};
    return device.kind;
  }

 private:
  struct Device {
    PadKind kind = PadKind::none;
    int questions = 3;  // left
  };
  std::map<std::wstring, Device> devices_;  // by path
};

}  // namespace

void scan_hid(const HidSystem& hid) {
  static KnownDevices& known = *new KnownDevices;  // lives until the process ends
  const std::vector<std::wstring> present = hid.present_paths();
  known.forget_all_but(present);
  for (const std::wstring& path : present) {
    if (path.size() > max_path_units) continue;
    if (std::ranges::any_of(slots, [&](PadSlot& slot) { return holds(slot, path); })) continue;
    const PadKind kind = known.kind_of(path, hid);
    if (kind == PadKind::none) continue;
    const auto free = std::ranges::find_if(slots, [](PadSlot& slot) { return slot.kind == PadKind::none; });
    if (free == std::end(slots)) continue;
    // One that another program has for itself is tried again by the next scan.
    if (UniqueHandle device = open_device(path.c_str())) occupy(*free, path, kind, hid, std::move(device));
  }
}

PadKind live_sony_pad(unsigned slot) { return slots[slot].live ? slots[slot].kind.load() : PadKind::none; }

std::optional<PadInput> read_sony_pad(unsigned slot) {
  PadSlot& pad = slots[slot];
  if (!pad.live) return std::nullopt;
  std::shared_lock hold(pad.lock);
  return pad.input;
}

}  // namespace vlm
