// Internal calls: functions of the player under the names of managed methods. The game gets a function that it can
// call; that the player is made for another system than the game is the library's business.
#include "runtime/runtime.h"

#include "runtime/thread_storage.h"

static constexpr size_t max_internal_calls = 512;
static SpinLock table_lock;
static struct Registration {
  char* name;
  Il2CppCallback function;
} registrations[max_internal_calls];
static size_t registration_count;

void append_internal_call_name(Text& text, const MethodInfo* method) {
  append_type_name(text, &method->parent->type, "/");
  text << "::" << method->name;
}

static Registration* find_registration(const char* name) {
  for (size_t i = 0; i < registration_count; ++i) {
    if (strcmp(registrations[i].name, name) == 0) return &registrations[i];
  }
  return nullptr;
}

/// Registering a name again replaces its function.
void il2cpp_add_internal_call(const char* name, Il2CppCallback function) {
  const Locked locked(table_lock);
  if (Registration* known = find_registration(name)) {
    known->function = function;
  } else if (registration_count < max_internal_calls) {
    registrations[registration_count++] = {strdup(name), function};
  }
}

/// A name with a parameter list that is not registered as such stands for the name without it.
Il2CppCallback il2cpp_resolve_icall(const char* name) {
  const Locked locked(table_lock);
  if (const Registration* exact = find_registration(name)) return exact->function;
  const char* parameters = strchr(name, '(');
  if (parameters == nullptr) return nullptr;
  Text short_name;
  short_name.append(name, static_cast<size_t>(parameters - name));
  const Registration* found = find_registration(short_name.c_str());
  return found == nullptr ? nullptr : found->function;
}

Il2CppCallback find_internal_call(const char* name) {
  count_event(EVENT_INTERNAL_CALL);
  const Il2CppCallback function = il2cpp_resolve_icall(name);
  if (function == nullptr) raise(missing_method_exception_class, Text() << "no internal call " << name);
  return function;
}
