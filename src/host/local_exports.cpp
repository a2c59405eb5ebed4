// The exports that do work of their own. internal_calls.cpp holds the two for internal calls.
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "diag/log.h"
#include "host/driver.h"
#include "host/forward_table.h"
#include "host/mods.h"
#include "support/sysv.h"
#include "support/text.h"

namespace vlm {
namespace {

// ---- Callbacks of the player ------------------------------------------------------------------------------------

using PlayerLogCallback = void (*)(const char* message);
using PlayerFindPluginCallback = const wchar_t* (*)(const wchar_t* name);

// The function last registered, or null; written by the registering export, read by the adapters on game threads.
std::atomic<PlayerLogCallback> player_log{nullptr};
std::atomic<PlayerFindPluginCallback> player_find_plugin{nullptr};

/// What the game calls to log: always the same function, whatever the player registers.
SYSV void log_adapter(const char* message) {
  if (const PlayerLogCallback log = player_log) log(message);
}

constexpr int plugin_name_size = 1024;

/// What the game calls to ask for a plug-in's file: UTF-8 here, UTF-16 in the player. Without an answer, or with one
/// that does not fit the buffer, the game gets back the name that it asked for.
SYSV const char* find_plugin_adapter(const char* name) {
  // On the heap of the thread's own storage: the answer stays valid until this thread asks again.
  static constinit thread_local char result[plugin_name_size];
  const PlayerFindPluginCallback find = player_find_plugin;
  if (find == nullptr || name == nullptr) return name;
  const auto wide_name = utf16_from_utf8(name);
  if (!wide_name) return name;
  const wchar_t* found = find(wide_name.get());
  if (found == nullptr) return name;
  if (WideCharToMultiByte(CP_UTF8, 0, found, -1, result, plugin_name_size, nullptr, nullptr) == 0) {
    log_message(0, "[api] the file name of plug-in %s is longer than %d bytes", name, plugin_name_size - 1);
    return name;
  }
  return result;
}

// ---- After il2cpp_init ------------------------------------------------------------------------------------------

/// Stands for an internal call that neither the game nor the player has. Callable with either convention.
SYSV std::uint64_t empty_internal_call() { return 0; }

/// "Namespace.Outer/Inner::Method", without the point when the namespace is empty.
void format_icall_name(char (&name)[512], Il2CppClass* klass, const MethodInfo* method) {
  const char* class_name = GAME(il2cpp_class_get_name)(klass);
  const char* method_name = GAME(il2cpp_method_get_name)(method);
  Il2CppClass* outer = GAME(il2cpp_class_get_declaring_type)(klass);
  const char* space = GAME(il2cpp_class_get_namespace)(outer ? outer : klass);
  const char* separator = *space ? "." : "";
  if (outer) {
    const char* outer_name = GAME(il2cpp_class_get_name)(outer);
    std::snprintf(name, sizeof name, "%s%s%s/%s::%s", space, separator, outer_name, class_name, method_name);
  } else {
    std::snprintf(name, sizeof name, "%s%s%s::%s", space, separator, class_name, method_name);
  }
}

void stub_class_icalls(Il2CppClass* klass) {
  void* iterator = nullptr;
  while (const MethodInfo* method = GAME(il2cpp_class_get_methods)(klass, &iterator)) {
    std::uint32_t implementation_flags = 0;
    GAME(il2cpp_method_get_flags)(method, &implementation_flags);
    if ((implementation_flags & METHOD_IMPL_ATTRIBUTE_INTERNAL_CALL) == 0) continue;
    char name[512];
    format_icall_name(name, klass, method);
    if (GAME(il2cpp_resolve_icall)(name) != nullptr) continue;
    GAME(il2cpp_add_internal_call)(name, reinterpret_cast<Il2CppCallback>(&empty_internal_call));
  }
}

/// Gives every internal call of the engine's assemblies that has no implementation one that returns 0.
/// Goes straight to the game's functions, so the overrides of internal_calls.cpp do not come into it.
void post_init_stub_icalls() {
  std::size_t count = 0;
  const Il2CppAssembly** assemblies = GAME(il2cpp_domain_get_assemblies)(GAME(il2cpp_domain_get)(), &count);
  for (std::size_t a = 0; a < count; ++a) {
    const Il2CppImage* image = GAME(il2cpp_assembly_get_image)(assemblies[a]);
    if (std::strstr(GAME(il2cpp_image_get_name)(image), "UnityEngine") == nullptr) continue;
    const std::size_t classes = GAME(il2cpp_image_get_class_count)(image);
    for (std::size_t c = 0; c < classes; ++c) {
      stub_class_icalls(const_cast<Il2CppClass*>(GAME(il2cpp_image_get_class)(image, c)));
    }
  }
}

int after_init(int result) {
  log_message(0, "il2cpp_init returned %d", result);
  if (result != 0) post_init_stub_icalls();
  mark_main_thread(result);
  return result;
}

}  // namespace
}  // namespace vlm

#define EXPORT extern "C" __declspec(dllexport)

EXPORT int il2cpp_init(const char* domain_name) {
  vlm::ensure_started();
  vlm::log_message(0, "il2cpp_init starting");
  return vlm::after_init(GAME(il2cpp_init)(domain_name));
}

EXPORT int il2cpp_init_utf16(const Il2CppChar* domain_name) {
  vlm::ensure_started();
  vlm::log_message(0, "il2cpp_init starting");
  return vlm::after_init(GAME(il2cpp_init_utf16)(domain_name));
}

/// The game is not asked to shut down: its threads run on until the process is gone.
EXPORT void il2cpp_shutdown() {
  vlm::flush_streams();
  TerminateProcess(GetCurrentProcess(), 0);
}

/// The player's allocator and TLS stack are Windows functions of many signatures; the game keeps its own.
EXPORT void il2cpp_set_memory_callbacks(Il2CppMemoryCallbacks*) { vlm::ensure_started(); }
EXPORT void il2cpp_unity_install_unitytls_interface(const void*) { vlm::ensure_started(); }

EXPORT void il2cpp_unity_set_android_network_up_state_func(Il2CppCallback) {}
EXPORT void il2cpp_register_debugger_agent_transport(void*) {}

EXPORT void il2cpp_register_log_callback(Il2CppCallback callback) {
  vlm::ensure_started();
  vlm::player_log = reinterpret_cast<vlm::PlayerLogCallback>(callback);
  GAME(il2cpp_register_log_callback)(reinterpret_cast<Il2CppCallback>(&vlm::log_adapter));
}

EXPORT void il2cpp_set_find_plugin_callback(Il2CppCallback callback) {
  vlm::ensure_started();
  vlm::player_find_plugin = reinterpret_cast<vlm::PlayerFindPluginCallback>(callback);
  GAME(il2cpp_set_find_plugin_callback)(reinterpret_cast<Il2CppCallback>(&vlm::find_plugin_adapter));
}

EXPORT Il2CppObject* il2cpp_runtime_invoke(const MethodInfo* method, void* object, void** parameters,
                                           Il2CppException** exception) {
  vlm::ensure_started();
  Il2CppObject* result = GAME(il2cpp_runtime_invoke)(method, object, parameters, exception);
  if (exception != nullptr && *exception != nullptr) return result;
  const bool wants_name = method != nullptr && vlm::awaits_scene();
  const char* const name = wants_name ? GAME(il2cpp_method_get_name)(method) : nullptr;
  return vlm::scene_hook(name, result);
}
