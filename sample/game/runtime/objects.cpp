// Objects, boxed values and arrays.
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
    return sizeof(Il2CppArray) + il2cpp_array_get_byte_length(reinterpret_cast<Il2CppArray*>(object));
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

// Arrays

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

Il2CppClass* il2cpp_bounded_array_class_get(Il2CppClass* element, uint32_t rank, bool bounded) {
  return bounded ? nullptr : il2cpp_array_class_get(element, rank);
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

Il2CppArray* il2cpp_array_new_full(Il2CppClass* klass, uintptr_t* lengths, uintptr_t* lower_bounds) {
  if (lower_bounds != nullptr && lower_bounds[0] != 0) {
    raise(exception_class, Text() << "arrays begin at 0");
    return nullptr;
  }
  return il2cpp_array_new_specific(klass, lengths[0]);
}

uint32_t il2cpp_array_length(Il2CppArray* array) { return static_cast<uint32_t>(array->length); }
int il2cpp_array_element_size(const Il2CppClass* klass) { return static_cast<int>(size_of(&klass->element->type)); }
uint32_t il2cpp_array_get_byte_length(Il2CppArray* array) {
  return static_cast<uint32_t>(array->length * size_of(&array->object.klass->element->type));
}

uint32_t il2cpp_array_object_header_size() { return sizeof(Il2CppArray); }
uint32_t il2cpp_offset_of_array_length_in_array_object_header() { return offsetof(Il2CppArray, length); }
uint32_t il2cpp_offset_of_array_bounds_in_array_object_header() { return offsetof(Il2CppArray, bounds); }
