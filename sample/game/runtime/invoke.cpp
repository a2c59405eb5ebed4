// Running managed code.
#include "runtime/runtime.h"

void il2cpp_runtime_class_init(Il2CppClass* klass) {
  if (klass->initialized) return;
  klass->initialized = true;  // first: a class constructor may use its own class
  if (klass->parent != nullptr) il2cpp_runtime_class_init(klass->parent);
  for (const MethodInfo& method : klass->methods) {
    if (strcmp(method.name, ".cctor") == 0) method.invoke(&method, nullptr, nullptr);
  }
}

/// An exception that no out-pointer takes is reported as unhandled.
Il2CppObject* il2cpp_runtime_invoke(const MethodInfo* method, void* object, void** arguments,
                                    Il2CppException** exception) {
  if (exception != nullptr) *exception = nullptr;
  il2cpp_runtime_class_init(method->parent);
  try {
    const Frame frame(method);
    if ((method->implementation & METHOD_INTERNAL_CALL) == 0) return method->invoke(method, object, arguments);
    Text name;
    append_internal_call_name(name, method);
    MethodInfo bound = *method;
    bound.code = find_internal_call(name.c_str());
    return bound.invoke(&bound, object, arguments);
  } catch (const Raised& raised) {
    if (exception != nullptr) {
      *exception = raised.exception;
    } else {
      il2cpp_unhandled_exception(raised.exception);
    }
    return nullptr;
  }
}

void il2cpp_runtime_object_init(Il2CppObject* object) {
  const MethodInfo* constructor = il2cpp_class_get_method_from_name(object->klass, ".ctor", 0);
  if (constructor != nullptr) il2cpp_runtime_invoke(constructor, object, nullptr, nullptr);
}
