// Objects and boxed values.
#include "runtime/runtime.h"

Il2CppObject* il2cpp_object_new(const Il2CppClass* klass) { return new_object(klass, klass->instance_size); }

void* il2cpp_object_unbox(Il2CppObject* object) { return object + 1; }

/// A reference needs no box: `value` is then the address of the variable that holds it.
Il2CppObject* il2cpp_value_box(Il2CppClass* klass, void* value) {
  if (!klass->is_valuetype()) return *static_cast<Il2CppObject**>(value);
  Il2CppObject* object = il2cpp_object_new(klass);
  memcpy(object + 1, value, size_of(&klass->type));
  return object;
}
