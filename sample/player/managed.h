// Managed classes and calls, as a player handles them.
#pragma once

#include <cstdint>

#include "library.h"

struct Vector3 {
  float x, y, z;
};

/// A class by its image, namespace and name; it has to exist.
Il2CppClass* find_class(const char* image, const char* name_space, const char* name);
const MethodInfo* find_method(Il2CppClass* klass, const char* name, int parameter_count);
FieldInfo* find_field(Il2CppClass* klass, const char* name);

/// Invokes a method that is expected to raise nothing. `self` is null for a static method.
Il2CppObject* invoke(const MethodInfo* method, Il2CppObject* self, void** arguments);

/// A static field's value.
template <class T>
T static_value(Il2CppClass* klass, const char* name) {
  T value{};
  api.il2cpp_field_static_get_value(find_field(klass, name), &value);
  return value;
}

/// A boxed value.
template <class T>
T unbox(Il2CppObject* object) {
  return *static_cast<T*>(api.il2cpp_object_unbox(object));
}
