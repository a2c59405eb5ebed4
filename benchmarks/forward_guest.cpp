// The game's side of the forwarder benchmark: a function that costs next to nothing.
extern "C" void* il2cpp_exception_from_name_msg(const void* image, const char*, const char*, const char* message) {
  return const_cast<void*>(image != nullptr ? image : message);
}
extern "C" int il2cpp_init(const char*) { return 1; }

// A runtime without assemblies whose methods do nothing; every name is that of a scene change.
extern "C" {
void* il2cpp_runtime_invoke(const void*, void* object, void**, void**) { return object; }
const char* il2cpp_method_get_name(const void*) { return "Internal_ActiveSceneChanged"; }
void* il2cpp_domain_get() { return nullptr; }
const void** il2cpp_domain_get_assemblies(const void*, unsigned long* count) {
  *count = 0;
  return nullptr;
}
void* il2cpp_gchandle_new(void* object, bool) { return object; }
void* il2cpp_gchandle_get_target(void* handle) { return handle; }
void il2cpp_gchandle_free(void*) {}
}
