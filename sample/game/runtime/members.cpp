// Methods and fields.
#include "runtime/runtime.h"

// Methods

const char* il2cpp_method_get_name(const MethodInfo* method) { return method->name; }
const Il2CppType* il2cpp_method_get_return_type(const MethodInfo* method) { return method->returns; }
bool il2cpp_method_is_instance(const MethodInfo* method) { return !method->is_static(); }

uint32_t il2cpp_method_get_param_count(const MethodInfo* method) {
  return static_cast<uint32_t>(method->parameters.count);
}
const Il2CppType* il2cpp_method_get_param(const MethodInfo* method, uint32_t index) {
  return index < method->parameters.count ? method->parameters.first[index].type : nullptr;
}

uint32_t il2cpp_method_get_flags(const MethodInfo* method, uint32_t* implementation) {
  if (implementation != nullptr) *implementation = method->implementation;
  return method->flags;
}

// Fields

const Il2CppType* il2cpp_field_get_type(FieldInfo* field) { return field->type; }
int il2cpp_field_get_flags(FieldInfo* field) { return field->flags; }
size_t il2cpp_field_get_offset(FieldInfo* field) { return static_cast<size_t>(field->offset); }

/// Where a field's variable is: in the object, or for a static field in the data of its class.
static char* place_of(const FieldInfo* field, void* object) {
  void* start = (field->flags & FIELD_STATIC) != 0 ? field->parent->static_data : object;
  return static_cast<char*>(start) + field->offset;
}

static void read_field(const FieldInfo* field, void* object, void* value) {
  if ((field->flags & FIELD_LITERAL) != 0) {
    memcpy(value, &field->literal, sizeof field->literal);
  } else {
    memcpy(value, place_of(field, object), size_of(field->type));
  }
}

void il2cpp_field_get_value(Il2CppObject* object, FieldInfo* field, void* value) { read_field(field, object, value); }
void il2cpp_field_static_get_value(FieldInfo* field, void* value) { read_field(field, nullptr, value); }

/// A value is given by its address, a reference as it is.
void il2cpp_field_set_value(Il2CppObject* object, FieldInfo* field, void* value) {
  if ((field->flags & FIELD_LITERAL) != 0) return;
  const void* from = field->type->klass->is_valuetype() ? value : &value;
  memcpy(place_of(field, object), from, size_of(field->type));
}

Il2CppObject* il2cpp_field_get_value_object(FieldInfo* field, Il2CppObject* object) {
  char value[64];
  if (size_of(field->type) > sizeof value) return nullptr;
  read_field(field, object, value);
  if (field->type->klass->is_valuetype()) return il2cpp_value_box(field->type->klass, value);
  Il2CppObject* reference;
  memcpy(&reference, value, sizeof reference);
  return reference;
}
