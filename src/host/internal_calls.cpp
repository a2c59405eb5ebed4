// Internal calls: Windows functions of the player that managed code of the game calls by name.
//
// The game calls whatever is registered under a name directly, with the System V convention, so it never gets the
// player's function itself but a thunk that translates calls.
#include <cstring>
#include <string>

#include "diag/log.h"
#include "host/driver.h"
#include "host/forward_table.h"
#include "host/managed_calls.h"
#include "support/save_directory.h"
#include "support/sysv.h"
#include "support/text.h"

namespace vlm {
namespace {

// ---- Internal calls that the library answers itself: game code must see a Mac ------------------------------------

SYSV Il2CppString* persistent_data_path() { return GAME(il2cpp_string_new)(save_directory()); }

constexpr int runtime_platform_macos_player = 1;
SYSV int platform() { return runtime_platform_macos_player; }

SYSV Il2CppString* device_model() {
  const std::string chosen = read_environment(L"VLM_DEVICE_MODEL").text;
  return GAME(il2cpp_string_new)(chosen.empty() ? "Mac14,6" : chosen.c_str());
}

struct Override {
  const char* name;
  Il2CppCallback function;
};
const Override overrides[] = {
    {"UnityEngine.Application::get_persistentDataPath", reinterpret_cast<Il2CppCallback>(&persistent_data_path)},
    {"UnityEngine.Application::get_platform", reinterpret_cast<Il2CppCallback>(&platform)},
    {"UnityEngine.SystemInfo::GetDeviceModel", reinterpret_cast<Il2CppCallback>(&device_model)},
};

Il2CppCallback callable_by_game(const char* name, Il2CppCallback function) {
  for (const Override& row : overrides) {
    if (std::strcmp(row.name, name) == 0) return row.function;
  }
  return make_icall_thunk(name, function);
}

}  // namespace
}  // namespace vlm

extern "C" __declspec(dllexport) void il2cpp_add_internal_call(const char* name, Il2CppCallback function) {
  vlm::ensure_started();
  GAME(il2cpp_add_internal_call)(name, vlm::callable_by_game(name, function));
}

/// The player gets back the function that it registered; a function of the game is not callable from Windows code.
extern "C" __declspec(dllexport) Il2CppCallback il2cpp_resolve_icall(const char* name) {
  vlm::ensure_started();
  const Il2CppCallback registered = GAME(il2cpp_resolve_icall)(name);
  if (registered == nullptr) return nullptr;
  if (const void* const function = vlm::icall_native_of(registered)) return const_cast<Il2CppCallback>(function);
  vlm::log_message(
      0, "[api] il2cpp_resolve_icall(%s) returned a runtime-internal function; not callable from Windows code", name);
  return nullptr;
}
