// A game runtime of a few tables, for the exports that have bodies of their own: it keeps what the library hands it,
// and lets the test make it call back.
#define GUEST_TEST_NO_MAIN
#include "guest_test.h"

extern "C" {

// Set by the test before the calls in question; read back after them.
int32 init_result = 0;
void* pending_exception = nullptr;
int32 handles_alive = 0;

char* strdup(const char*);
int32 strcmp(const char*, const char*);

// ---- One engine assembly and one game assembly ---------------------------------------------------------------------

struct Method {
  const char* name;
  uint32 implementation_flags;
};
struct Class {
  const char* name_space;
  const char* name;
  Class* outer;
  const Method* methods;
  uint64 method_count;
};
struct Image {
  const char* name;
  Class** classes;
  uint64 class_count;
};

static const Method internal_methods[] = {{"Managed", 0}, {"Called", 0x1000}, {"Known", 0x1080}};
static Class transform{"UnityEngine", "Transform", nullptr, internal_methods, 3};
static Class nested{"", "Enumerator", &transform, internal_methods, 3};
static Class bare{"", "Bare", nullptr, internal_methods, 3};
static Class of_game{"", "Player", nullptr, internal_methods, 3};
static Class* engine_classes[] = {&transform, &nested, &bare};
static Class* game_classes[] = {&of_game};
static Image images[] = {{"UnityEngine.CoreModule.dll", engine_classes, 3}, {"Assembly-CSharp.dll", game_classes, 1}};
static Image* assemblies[] = {&images[0], &images[1]};

void* il2cpp_domain_get() { return images; }
Image** il2cpp_domain_get_assemblies(void*, uint64* count) { return *count = 2, assemblies; }
Image* il2cpp_assembly_get_image(Image* assembly) { return assembly; }
const char* il2cpp_image_get_name(Image* image) { return image->name; }
uint64 il2cpp_image_get_class_count(Image* image) { return image->class_count; }
Class* il2cpp_image_get_class(Image* image, uint64 index) { return image->classes[index]; }
const char* il2cpp_class_get_name(Class* klass) { return klass->name; }
const char* il2cpp_class_get_namespace(Class* klass) { return klass->name_space; }
Class* il2cpp_class_get_declaring_type(Class* klass) { return klass->outer; }
const Method* il2cpp_class_get_methods(Class* klass, void** iterator) {
  const uint64 next = reinterpret_cast<uint64>(*iterator);
  if (next == klass->method_count) return nullptr;
  *iterator = reinterpret_cast<void*>(next + 1);
  return &klass->methods[next];
}
const char* il2cpp_method_get_name(const Method* method) { return method->name; }
uint32 il2cpp_method_get_flags(const Method* method, uint32* implementation_flags) {
  *implementation_flags = method->implementation_flags;
  return 0;
}

// ---- Internal calls ------------------------------------------------------------------------------------------------

struct InternalCall {
  const char* name;
  void* function;
};
InternalCall internal_calls[32];
int32 internal_call_count = 0;

static int64 known() { return 11; }
void* il2cpp_resolve_icall(const char* name) {
  for (int32 i = internal_call_count; i-- > 0;) {
    if (strcmp(internal_calls[i].name, name) == 0) return internal_calls[i].function;
  }
  if (strcmp(name, "UnityEngine.Transform::Known") == 0) return reinterpret_cast<void*>(&known);
  return nullptr;
}
void il2cpp_add_internal_call(const char* name, void* function) {
  internal_calls[internal_call_count++ % 32] = {strdup(name), function};
}
const char* internal_call_name(int64 i) { return i < internal_call_count ? internal_calls[i].name : nullptr; }

/// Calls what is registered under a name as managed code would.
int64 call_internal(const char* name, int64 a, int64 b) {
  void* function = il2cpp_resolve_icall(name);
  return function ? reinterpret_cast<int64 (*)(int64, int64)>(function)(a, b) : -1;
}
const char* il2cpp_string_new(const char* text) { return strdup(text); }

// ---- Init, invocation, handles ---------------------------------------------------------------------------------------

const char* domain_name = nullptr;
int32 il2cpp_init(const char* name) { return domain_name = strdup(name), init_result; }
int32 il2cpp_init_utf16(const unsigned short* name) { return domain_name = reinterpret_cast<const char*>(name), init_result; }

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

// ---- Callbacks of the player -------------------------------------------------------------------------------------------

using Log = void (*)(const char*);
using FindPlugin = const char* (*)(const char*);
Log log_function = nullptr;
FindPlugin find_plugin_function = nullptr;
void il2cpp_register_log_callback(Log log) { log_function = log; }
void il2cpp_set_find_plugin_callback(FindPlugin find) { find_plugin_function = find; }
void emit_log(const char* text) { log_function(text); }
const char* find_plugin(const char* name) { return find_plugin_function(name); }
}
