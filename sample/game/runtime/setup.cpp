// What the player tells the runtime before and after it starts, and the memory that both share.
#include "runtime/runtime.h"

Settings settings;

void il2cpp_set_data_dir(const char* path) {
  free(settings.data_directory);
  settings.data_directory = strdup(path);
}

void il2cpp_set_commandline_arguments(int count, const char* const* arguments, const char*) {
  settings.argument_count = count;
}

/// No managed code here reads a configuration.
void il2cpp_set_config_dir(const char*) {}

int il2cpp_init(const char* domain_name) {
  if (domain().assembly_count == 0) return 0;
  log(Text() << "game: runtime started for domain '" << domain_name << "', "
             << static_cast<uint64_t>(domain().assembly_count) << " assemblies");
  il2cpp_thread_attach(&domain());
  return 1;
}

int il2cpp_init_utf16(const Il2CppChar* domain_name) {
  char* name = utf8_copy(domain_name);
  const int result = il2cpp_init(name);
  free(name);
  return result;
}

/// On Windows the library ends the process instead.
void il2cpp_shutdown() { fflush(stdout); }

void il2cpp_free(void* block) { free(block); }
