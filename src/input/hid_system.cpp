// Windows' own list of HID devices. The two libraries are loaded when they are first needed: most of the time that
// the game's library takes to load would be theirs.
#include <windows.h>

#include <hidsdi.h>
#include <setupapi.h>

#include "input/sony_pads.h"
#include "support/handles.h"
#include "support/procedures.h"

namespace vlm {
namespace {

// Written by windows_hid_system(), then read-only.
struct {
  decltype(&::HidD_GetHidGuid) HidD_GetHidGuid;
  decltype(&::HidD_GetAttributes) HidD_GetAttributes;
  decltype(&::SetupDiGetClassDevsW) SetupDiGetClassDevsW;
  decltype(&::SetupDiEnumDeviceInterfaces) SetupDiEnumDeviceInterfaces;
  decltype(&::SetupDiGetDeviceInterfaceDetailW) SetupDiGetDeviceInterfaceDetailW;
  decltype(&::SetupDiDestroyDeviceInfoList) SetupDiDestroyDeviceInfoList;
} api;

std::vector<std::wstring> present_paths() {
  GUID hid;
  api.HidD_GetHidGuid(&hid);
  const HDEVINFO list = api.SetupDiGetClassDevsW(&hid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (list == INVALID_HANDLE_VALUE) return {};
  std::vector<std::wstring> paths;
  SP_DEVICE_INTERFACE_DATA device{};
  device.cbSize = sizeof device;
  for (DWORD i = 0; api.SetupDiEnumDeviceInterfaces(list, nullptr, &hid, i, &device); ++i) {
    // Room for the longest path that a slot takes; a longer one is an error here, and passed over.
    alignas(SP_DEVICE_INTERFACE_DETAIL_DATA_W) std::byte room[sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) + 1024];
    auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(room);
    detail->cbSize = sizeof *detail;
    if (api.SetupDiGetDeviceInterfaceDetailW(list, &device, detail, sizeof room, nullptr, nullptr)) {
      paths.emplace_back(detail->DevicePath);
    }
  }
  api.SetupDiDestroyDeviceInfoList(list);
  return paths;
}

/// No access rights are asked for: keyboards and mice are Windows' alone, but say what they are.
std::optional<HidId> identify(const wchar_t* path) {
  const UniqueHandle device =
      own_handle(CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
  if (device == nullptr) return std::nullopt;
  HIDD_ATTRIBUTES attributes{};
  attributes.Size = sizeof attributes;
  if (!api.HidD_GetAttributes(device.get(), &attributes)) return std::nullopt;
  return HidId{attributes.VendorID, attributes.ProductID};
}

template <class Function>
bool take(HMODULE library, const char* name, Function*& function) {
  function = find_procedure<Function>(library, name);
  return function != nullptr;
}

}  // namespace

const HidSystem* windows_hid_system() {
  static HidSystem system = {present_paths, identify, nullptr};
  const HMODULE hid = LoadLibraryExW(L"hid.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  const HMODULE setup = LoadLibraryExW(L"setupapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (hid == nullptr || setup == nullptr) return nullptr;
  const bool complete = take(hid, "HidD_GetHidGuid", api.HidD_GetHidGuid) &&
                        take(hid, "HidD_GetAttributes", api.HidD_GetAttributes) &&
                        take(hid, "HidD_GetFeature", system.get_feature) &&
                        take(setup, "SetupDiGetClassDevsW", api.SetupDiGetClassDevsW) &&
                        take(setup, "SetupDiEnumDeviceInterfaces", api.SetupDiEnumDeviceInterfaces) &&
                        take(setup, "SetupDiGetDeviceInterfaceDetailW", api.SetupDiGetDeviceInterfaceDetailW) &&
                        take(setup, "SetupDiDestroyDeviceInfoList", api.SetupDiDestroyDeviceInfoList);
  return complete ? &system : nullptr;
}

}  // namespace vlm
