// A game runtime of a few tables, for the exports that have bodies of their own: it keeps what the library hands it,
// and lets the test make it call back.
#include "reflection_runtime.h"

// One engine assembly and one game assembly.
static constexpr Method internal_methods[] = {{"Managed", false, 0, 0, nullptr, nullptr},
                                              {"Called", false, 0x1000, 0, nullptr, &TypeOf<int>::get},
                                              {"Known", false, 0x1080, 0, nullptr, &TypeOf<int>::get}};
static constexpr Class internal_class(const char* name, const char* name_space = "", const Class* outer = nullptr) {
  return {.name = name, .name_space = name_space, .methods = internal_methods, .method_count = 3, .outer = outer};
}
static const Class transform = internal_class("Transform", "UnityEngine");
static const Class nested = internal_class("Enumerator", "", &transform);
static const Class bare = internal_class("Bare"), of_game = internal_class("Player");
static const Image images[] = {{{&transform, &nested, &bare}, "UnityEngine.CoreModule.dll"},
                               {{&of_game}, "Assembly-CSharp.dll"}};
const Image* reflection::assemblies[] = {&images[0], &images[1], nullptr};

extern "C" {

// Set by the test before the calls in question; read back after them.
int32 init_result = 0;
void* pending_exception = nullptr;
int32 handles_alive = 0;

// ---- Internal calls

int64 known() { return 11; }
[[gnu::constructor]] void add_own_function() {
  il2cpp_add_internal_call("UnityEngine.Transform::Known", reinterpret_cast<void*>(&known));
}
/// The names that the library registered.
const char* internal_call_names() {
  static char names[1000];
  char* at = names;
  for (uint32 i = 1; i < registration_count; ++i) at += snprintf(at, 100, "%s ", registrations[i].name);
  return names;
}

/// Calls what is registered under a name as managed code would.
int64 call_internal(const char* name, int64 a, int64 b) {
  return reinterpret_cast<int64 (*)(int64, int64)>(il2cpp_resolve_icall(name))(a, b);
}
const char* il2cpp_string_new(const char* text) { return strdup(text); }

bool throws(int64 (*function)()) {
  try {
    return function(), false;
  } catch (...) {
    return true;
  }
}
[[noreturn]] int64 throw_number() { throw 1; }

// ---- Init, invocation, handles

const char* domain_name = nullptr;
int32 il2cpp_init(const char* name) { return domain_name = strdup(name), init_result; }

void* il2cpp_runtime_invoke(const Method*, void* object, void**, void** exception) {
  if (exception) *exception = pending_exception;
  return object;
}
uint32 il2cpp_gchandle_new(void* object, bool pinned) {
  ++handles_alive;
  return pinned ? 0 : static_cast<uint32>(reinterpret_cast<uint64>(object));
}
/// A moved object: the handle's target is not where it was.
void* il2cpp_gchandle_get_target(uint32 handle) { return reinterpret_cast<void*>(uint64{handle} + 0x100); }
void il2cpp_gchandle_free(uint32) { --handles_alive; }

// ---- Callbacks of the player

void (*log_function)(const char*) = nullptr;
const char* (*plugin_function)(const char*) = nullptr;
void il2cpp_register_log_callback(decltype(log_function) log) { log_function = log; }
void il2cpp_set_find_plugin_callback(decltype(plugin_function) find) { plugin_function = find; }
void emit_log(const char* text) { log_function(text); }
const char* find_plugin(const char* name) { return plugin_function(name); }
}
