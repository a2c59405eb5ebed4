// Arrays.
#include "runtime/runtime.h"

static SpinLock array_classes_lock;

/// Arrays have one dimension here; a class of more does not exist.
Il2CppClass* il2cpp_array_class_get(Il2CppClass* element, uint32_t rank) {
  if (rank != 1) return nullptr;
  const Locked locked(array_classes_lock);
  if (element->array_class == nullptr) {
    Text name;
    name << element->name << "[]";
    auto* klass = static_cast<Il2CppClass*>(calloc(1, sizeof(Il2CppClass)));
    *klass = {.name = strdup(name.c_str()),
              .name_space = element->name_space,
              .parent = &array_class,
              .type = {klass, TYPE_SZARRAY},
              .instance_size = sizeof(Il2CppArray),
              .element = element,
              .image = element->image};
    element->array_class = klass;
  }
  return element->array_class;
}

Il2CppArray* il2cpp_array_new_specific(Il2CppClass* klass, uintptr_t length) {
  constexpr uintptr_t longest = 0x7FFFFFFF;
  if (length > longest) {
    raise(exception_class, Text() << "array of " << static_cast<uint64_t>(length) << " elements");
    return nullptr;
  }
  auto* array =
      reinterpret_cast<Il2CppArray*>(new_object(klass, sizeof(Il2CppArray) + length * size_of(&klass->element->type)));
  array->length = length;
  return array;
}

Il2CppArray* il2cpp_array_new(Il2CppClass* element, uintptr_t length) {
  return il2cpp_array_new_specific(il2cpp_array_class_get(element, 1), length);
}

uint32_t il2cpp_array_length(Il2CppArray* array) { return static_cast<uint32_t>(array->length); }
uint32_t il2cpp_array_get_byte_length(Il2CppArray* array) {
  return static_cast<uint32_t>(array->length * size_of(&array->object.klass->element->type));
}
