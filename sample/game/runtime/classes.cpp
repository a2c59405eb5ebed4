// Classes: finding them, what they are, what they consist of.
#include "runtime/runtime.h"

size_t size_of(const Il2CppType* type) {
  if (type->by_reference || !type->klass->is_valuetype()) return sizeof(void*);
  return type->klass->instance_size - sizeof(Il2CppObject);
}

bool is_same_or_subclass(const Il2CppClass* klass, const Il2CppClass* of) {
  for (; klass != nullptr; klass = klass->parent) {
    if (klass == of) return true;
  }
  return false;
}

static bool implements(const Il2CppClass* klass, const Il2CppClass* interface) {
  for (; klass != nullptr; klass = klass->parent) {
    for (const Il2CppClass* each : klass->interfaces) {
      if (each == interface) return true;
    }
  }
  return false;
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
Il2CppClass* il2cpp_class_from_il2cpp_type(const Il2CppType* type) { return type->klass; }
Il2CppClass* il2cpp_class_from_system_type(Il2CppReflectionType* type) { return type->type->klass; }

void il2cpp_class_for_each(Il2CppCallback callback, void* user_data) {
  const auto report = reinterpret_cast<void (*)(Il2CppClass*, void*)>(callback);
  for (size_t i = 0; i < domain().assembly_count; ++i) {
    for (Il2CppClass* klass : domain().assemblies[i]->image->classes) report(klass, user_data);
  }
}

// Identity

const char* il2cpp_class_get_name(Il2CppClass* klass) { return klass->name; }
const char* il2cpp_class_get_namespace(Il2CppClass* klass) { return klass->name_space; }
Il2CppClass* il2cpp_class_get_parent(Il2CppClass* klass) { return klass->parent; }
Il2CppClass* il2cpp_class_get_declaring_type(Il2CppClass* klass) { return klass->declaring; }
const Il2CppType* il2cpp_class_get_type(Il2CppClass* klass) { return &klass->type; }
uint32_t il2cpp_class_get_type_token(Il2CppClass* klass) { return klass->token; }
const Il2CppImage* il2cpp_class_get_image(Il2CppClass* klass) { return klass->image; }
const char* il2cpp_class_get_assemblyname(const Il2CppClass* klass) { return klass->image->assembly->name; }
int il2cpp_class_get_flags(const Il2CppClass* klass) { return static_cast<int>(klass->flags); }

// Kind

bool il2cpp_class_is_valuetype(const Il2CppClass* klass) { return klass->is_valuetype(); }
bool il2cpp_class_is_enum(const Il2CppClass* klass) { return klass->is_enum(); }
bool il2cpp_class_is_abstract(const Il2CppClass* klass) { return (klass->flags & CLASS_ABSTRACT) != 0; }
bool il2cpp_class_is_interface(const Il2CppClass* klass) { return (klass->flags & CLASS_INTERFACE) != 0; }
bool il2cpp_class_is_inited(const Il2CppClass* klass) { return klass->initialized; }
const Il2CppType* il2cpp_class_enum_basetype(Il2CppClass* klass) {
  return klass->is_enum() ? &klass->element->type : nullptr;
}

// The game has no generic classes.
bool il2cpp_class_is_generic(const Il2CppClass*) { return false; }
bool il2cpp_class_is_inflated(const Il2CppClass*) { return false; }

bool il2cpp_class_is_assignable_from(Il2CppClass* klass, Il2CppClass* from) {
  return is_same_or_subclass(from, klass) || implements(from, klass);
}

bool il2cpp_class_is_subclass_of(Il2CppClass* klass, Il2CppClass* of, bool check_interfaces) {
  if (klass == of) return false;
  return is_same_or_subclass(klass, of) || (check_interfaces && implements(klass, of));
}

bool il2cpp_class_has_parent(Il2CppClass* klass, Il2CppClass* parent) { return is_same_or_subclass(klass, parent); }

// Members

FieldInfo* il2cpp_class_get_fields(Il2CppClass* klass, void** position) { return klass->fields.next(position); }
const MethodInfo* il2cpp_class_get_methods(Il2CppClass* klass, void** position) {
  return klass->methods.next(position);
}
const PropertyInfo* il2cpp_class_get_properties(Il2CppClass* klass, void** position) {
  return klass->properties.next(position);
}
Il2CppClass* il2cpp_class_get_nested_types(Il2CppClass* klass, void** position) {
  Il2CppClass* const* nested = klass->nested.next(position);
  return nested == nullptr ? nullptr : *nested;
}
Il2CppClass* il2cpp_class_get_interfaces(Il2CppClass* klass, void** position) {
  Il2CppClass* const* interface = klass->interfaces.next(position);
  return interface == nullptr ? nullptr : *interface;
}
/// The game declares no events.
const EventInfo* il2cpp_class_get_events(Il2CppClass*, void**) { return nullptr; }

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

const PropertyInfo* il2cpp_class_get_property_from_name(Il2CppClass* klass, const char* name) {
  for (; klass != nullptr; klass = klass->parent) {
    for (PropertyInfo& property : klass->properties) {
      if (strcmp(property.name, name) == 0) return &property;
    }
  }
  return nullptr;
}

size_t il2cpp_class_num_fields(const Il2CppClass* klass) { return klass->fields.count; }

// Sizes, in bytes

int32_t il2cpp_class_instance_size(Il2CppClass* klass) { return static_cast<int32_t>(klass->instance_size); }

int32_t il2cpp_class_value_size(Il2CppClass* klass, uint32_t* alignment) {
  if (alignment != nullptr) *alignment = klass->alignment;
  return static_cast<int32_t>(klass->instance_size - sizeof(Il2CppObject));
}

Il2CppClass* il2cpp_class_get_element_class(Il2CppClass* klass) {
  return klass->element != nullptr ? klass->element : klass;
}
int il2cpp_class_array_element_size(const Il2CppClass* klass) { return static_cast<int>(size_of(&klass->type)); }
int il2cpp_class_get_rank(const Il2CppClass* klass) { return klass->is_array() ? 1 : 0; }

/// True when an object holds references: such a field is not a value, or a value that holds one itself.
bool il2cpp_class_has_references(Il2CppClass* klass) {
  for (; klass != nullptr; klass = klass->parent) {
    for (const FieldInfo& field : klass->fields) {
      if ((field.flags & FIELD_STATIC) != 0) continue;
      Il2CppClass* of_field = field.type->klass;
      if (!of_field->is_valuetype()) return true;
      if (of_field != klass && il2cpp_class_has_references(of_field)) return true;
    }
  }
  return false;
}

/// Values without references have the same form in managed and in native code.
bool il2cpp_class_is_blittable(const Il2CppClass* klass) {
  return klass->is_valuetype() && !il2cpp_class_has_references(const_cast<Il2CppClass*>(klass));
}

// Which words of an object hold references: one bit per 8 bytes, the header's included.

size_t il2cpp_class_get_bitmap_size(const Il2CppClass* klass) {
  const size_t words = (klass->instance_size + 7) / 8;
  return (words + 63) / 64 * sizeof(size_t);
}

static void mark_references(const Il2CppClass* klass, size_t at, size_t* bitmap) {
  for (; klass != nullptr; klass = klass->parent) {
    for (const FieldInfo& field : klass->fields) {
      if ((field.flags & FIELD_STATIC) != 0) continue;
      const size_t offset = at + static_cast<size_t>(field.offset);
      if (!field.type->klass->is_valuetype()) {
        bitmap[offset / 8 / 64] |= size_t{1} << offset / 8 % 64;
      } else if (field.type->code == TYPE_VALUETYPE && field.type->klass != klass) {
        mark_references(field.type->klass, offset - sizeof(Il2CppObject), bitmap);
      }
    }
  }
}

void il2cpp_class_get_bitmap(Il2CppClass* klass, size_t* bitmap) {
  for (size_t i = 0; i < il2cpp_class_get_bitmap_size(klass) / sizeof(size_t); ++i) bitmap[i] = 0;
  mark_references(klass, 0, bitmap);
}

// Data that goes with a class

uint32_t il2cpp_class_get_data_size(const Il2CppClass* klass) { return klass->static_size; }
void* il2cpp_class_get_static_field_data(const Il2CppClass* klass) { return klass->static_data; }
void il2cpp_class_set_userdata(Il2CppClass* klass, void* data) { klass->userdata = data; }
int il2cpp_class_get_userdata_offset() { return offsetof(Il2CppClass, userdata); }
