// Services that this runtime does not have. Each answers as a runtime built without the service does: nothing is
// installed, nothing is found, nothing is made. A game of full size has them; none is needed to be loaded and played.
#include "runtime/runtime.h"

// Profiler: no event is ever reported, so what would receive them is not kept.
void il2cpp_profiler_install(Il2CppProfiler*, Il2CppCallback) {}
void il2cpp_profiler_set_events(int) {}
void il2cpp_profiler_install_enter_leave(Il2CppCallback, Il2CppCallback) {}
void il2cpp_profiler_install_allocation(Il2CppCallback) {}
void il2cpp_profiler_install_gc(Il2CppCallback, Il2CppCallback) {}
void il2cpp_profiler_install_fileio(Il2CppCallback) {}
void il2cpp_profiler_install_thread(Il2CppCallback, Il2CppCallback) {}

// Statistics and memory snapshots
bool il2cpp_stats_dump_to_file(const char*) { return false; }
uint64_t il2cpp_stats_get_value(int) { return 0; }
Il2CppManagedMemorySnapshot* il2cpp_capture_memory_snapshot() { return nullptr; }
void il2cpp_free_captured_memory_snapshot(Il2CppManagedMemorySnapshot*) {}

// Debugger
void il2cpp_debugger_set_agent_options(const char*) {}
bool il2cpp_is_debugger_attached() { return false; }
void il2cpp_register_debugger_agent_transport(void*) {}
bool il2cpp_debug_get_method_info(const MethodInfo*, Il2CppMethodDebugInfo*) { return false; }

// Native stack traces: frames.cpp knows the managed invocations, nobody records native addresses.
void il2cpp_override_stack_backtrace(Il2CppCallback) {}
void il2cpp_native_stack_trace(const Il2CppException*, uintptr_t** addresses, int* count, char** image_uuid,
                               char** image_name) {
  *addresses = nullptr;
  *count = 0;
  *image_uuid = nullptr;
  *image_name = nullptr;
}

// Custom attributes: the metadata tables have none.
Il2CppCustomAttrInfo* il2cpp_custom_attrs_from_class(Il2CppClass*) { return nullptr; }
Il2CppCustomAttrInfo* il2cpp_custom_attrs_from_method(const MethodInfo*) { return nullptr; }
Il2CppCustomAttrInfo* il2cpp_custom_attrs_from_field(const FieldInfo*) { return nullptr; }
Il2CppObject* il2cpp_custom_attrs_get_attr(Il2CppCustomAttrInfo*, Il2CppClass*) { return nullptr; }
bool il2cpp_custom_attrs_has_attr(Il2CppCustomAttrInfo*, Il2CppClass*) { return false; }
Il2CppArray* il2cpp_custom_attrs_construct(Il2CppCustomAttrInfo*) { return il2cpp_array_new(&object_class, 0); }
void il2cpp_custom_attrs_free(Il2CppCustomAttrInfo*) {}
bool il2cpp_class_has_attribute(Il2CppClass*, Il2CppClass*) { return false; }
bool il2cpp_method_has_attribute(const MethodInfo*, Il2CppClass*) { return false; }
bool il2cpp_field_has_attribute(FieldInfo*, Il2CppClass*) { return false; }

// Liveness: the player looks for unused assets with it. Without a state no object is reported as alive.
void* il2cpp_unity_liveness_allocate_struct(Il2CppClass*, int, Il2CppCallback, void*, Il2CppCallback) {
  return nullptr;
}
void il2cpp_unity_liveness_calculation_from_root(Il2CppObject*, void*) {}
void il2cpp_unity_liveness_calculation_from_statics(void*) {}
void il2cpp_unity_liveness_finalize(void*) {}
void il2cpp_unity_liveness_free_struct(void*) {}

// Interfaces of the player that this game has no use for
void il2cpp_set_memory_callbacks(Il2CppMemoryCallbacks*) {}
void il2cpp_unity_install_unitytls_interface(const void*) {}
void il2cpp_unity_set_android_network_up_state_func(Il2CppCallback) {}
