// What the player tells the runtime before and after it starts, and the memory that both share.
#include "runtime/runtime.h"

Settings settings;
static size_t memory_pool_region_size;

void il2cpp_set_data_dir(const char* path) {
  free(settings.data_directory);
  settings.data_directory = strdup(path);
}

void il2cpp_set_commandline_arguments(int count, const char* const* arguments, const char*) {
  settings.argument_count = count;
}
void il2cpp_set_commandline_arguments_utf16(int count, const Il2CppChar* const* arguments, const char*) {
  settings.argument_count = count;
}

// No managed code here reads a configuration or writes a temporary file.
void il2cpp_set_config_dir(const char*) {}
void il2cpp_set_temp_dir(const char*) {}
void il2cpp_set_config(const char*) {}
void il2cpp_set_config_utf16(const Il2CppChar*) {}

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
void il2cpp_shutdown() { fflush(__stdoutp); }

void* il2cpp_alloc(size_t size) { return malloc(size); }
void il2cpp_free(void* block) { free(block); }

void il2cpp_memory_pool_set_region_size(size_t size) { memory_pool_region_size = size; }
size_t il2cpp_memory_pool_get_region_size() { return memory_pool_region_size; }
