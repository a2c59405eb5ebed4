// Classes: finding them, what they are, what they consist of.
#include "runtime/runtime.h"

size_t size_of(const Il2CppType* type) {
  if (type->by_reference || !type->klass->is_valuetype()) return sizeof(void*);
  return type->klass->instance_size - sizeof(Il2CppObject);
}

// Finding

Il2CppClass* il2cpp_class_from_name(const Il2CppImage* image, const char* name_space, const char* name) {
  for (Il2CppClass* klass : image->classes) {
    if (klass->declaring == nullptr && strcmp(klass->name, name) == 0 && strcmp(klass->name_space, name_space) == 0) {
      return klass;
    }
  }
  return nullptr;
}

Il2CppClass* il2cpp_class_from_type(const Il2CppType* type) { return type->klass; }

void il2cpp_class_for_each(Il2CppCallback callback, void* user_data) {
  const auto report = reinterpret_cast<void (*)(Il2CppClass*, void*)>(callback);
  for (size_t i = 0; i < domain().assembly_count; ++i) {
    for (Il2CppClass* klass : domain().assemblies[i]->image->classes) report(klass, user_data);
  }
}

// Identity

const char* il2cpp_class_get_name(Il2CppClass* klass) { return klass->name; }
const char* il2cpp_class_get_namespace(Il2CppClass* klass) { return klass->name_space; }
Il2CppClass* il2cpp_class_get_declaring_type(Il2CppClass* klass) { return klass->declaring; }
const Il2CppType* il2cpp_class_get_type(Il2CppClass* klass) { return &klass->type; }

// Kind

bool il2cpp_class_is_valuetype(const Il2CppClass* klass) { return klass->is_valuetype(); }
bool il2cpp_class_is_enum(const Il2CppClass* klass) { return klass->is_enum(); }
const Il2CppType* il2cpp_class_enum_basetype(Il2CppClass* klass) {
  return klass->is_enum() ? &klass->element->type : nullptr;
}

// Members

FieldInfo* il2cpp_class_get_fields(Il2CppClass* klass, void** position) { return klass->fields.next(position); }
const MethodInfo* il2cpp_class_get_methods(Il2CppClass* klass, void** position) {
  return klass->methods.next(position);
}
Il2CppClass* il2cpp_class_get_nested_types(Il2CppClass* klass, void** position) {
  Il2CppClass* const* nested = klass->nested.next(position);
  return nested == nullptr ? nullptr : *nested;
}

FieldInfo* il2cpp_class_get_field_from_name(Il2CppClass* klass, const char* name) {
  for (; klass != nullptr; klass = klass->parent) {
    for (FieldInfo& field : klass->fields) {
      if (strcmp(field.name, name) == 0) return &field;
    }
  }
  return nullptr;
}

/// A count of -1 takes the first method of the name.
const MethodInfo* il2cpp_class_get_method_from_name(Il2CppClass* klass, const char* name, int parameter_count) {
  for (; klass != nullptr; klass = klass->parent) {
    for (MethodInfo& method : klass->methods) {
      const bool fits = parameter_count == -1 || method.parameters.count == static_cast<size_t>(parameter_count);
      if (fits && strcmp(method.name, name) == 0) return &method;
    }
  }
  return nullptr;
}

// Sizes, in bytes

int32_t il2cpp_class_value_size(Il2CppClass* klass, uint32_t* alignment) {
  if (alignment != nullptr) *alignment = klass->alignment;
  return static_cast<int32_t>(klass->instance_size - sizeof(Il2CppObject));
}
