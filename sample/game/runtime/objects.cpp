// Objects and boxed values.
#include "runtime/runtime.h"

Il2CppObject* il2cpp_object_new(const Il2CppClass* klass) { return new_object(klass, klass->instance_size); }

uint32_t il2cpp_object_header_size() { return sizeof(Il2CppObject); }
Il2CppClass* il2cpp_object_get_class(Il2CppObject* object) { return object->klass; }

uint32_t il2cpp_object_get_size(Il2CppObject* object) {
  const Il2CppClass* klass = object->klass;
  if (klass == &string_class) {
    const auto* string = reinterpret_cast<const Il2CppString*>(object);
    return sizeof(Il2CppString) + (static_cast<uint32_t>(string->length) + 1) * sizeof(Il2CppChar);
  }
  if (klass->is_array()) {
    const auto* array = reinterpret_cast<const Il2CppArray*>(object);
    return static_cast<uint32_t>(sizeof(Il2CppArray) + array->length * size_of(&klass->element->type));
  }
  return klass->instance_size;
}

/// The method of the same name and parameter count nearest to the object's own class.
const MethodInfo* il2cpp_object_get_virtual_method(Il2CppObject* object, const MethodInfo* method) {
  if ((method->flags & METHOD_VIRTUAL) == 0) return method;
  const auto parameter_count = static_cast<int>(method->parameters.count);
  return il2cpp_class_get_method_from_name(object->klass, method->name, parameter_count);
}

void* il2cpp_object_unbox(Il2CppObject* object) { return object + 1; }

/// A reference needs no box: `value` is then the address of the variable that holds it.
Il2CppObject* il2cpp_value_box(Il2CppClass* klass, void* value) {
  if (!klass->is_valuetype()) return *static_cast<Il2CppObject**>(value);
  Il2CppObject* object = il2cpp_object_new(klass);
  memcpy(object + 1, value, size_of(&klass->type));
  return object;
}
