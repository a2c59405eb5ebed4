// What the runtime asks of the player.
#include "runtime/runtime.h"

#include "runtime/thread_storage.h"

static void (*log_callback)(const char* message);
static const char* (*find_plugin_callback)(const char* name);

void log(const Text& text) {
  count_event(EVENT_LOG);
  if (log_callback != nullptr) return log_callback(text.c_str());
  fprintf(stdout, "%s\n", text.c_str());
  fflush(stdout);
}

const char* find_plugin(const char* name) {
  return find_plugin_callback == nullptr ? name : find_plugin_callback(name);
}

void il2cpp_register_log_callback(Il2CppCallback callback) {
  log_callback = reinterpret_cast<decltype(log_callback)>(callback);
}

void il2cpp_set_find_plugin_callback(Il2CppCallback callback) {
  find_plugin_callback = reinterpret_cast<decltype(find_plugin_callback)>(callback);
}
