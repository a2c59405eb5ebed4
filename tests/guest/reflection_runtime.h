// A miniature managed runtime for guests: what the library asks about methods and types, made of C++ types, and the
// registration of internal calls. The image defines `assemblies`, a list of images that ends with null.
#pragma once

#define GUEST_TEST_NO_MAIN
#include "darwin.h"
#include "signatures.h"

namespace reflection {

using namespace signatures;

struct Class;
struct Type {
  const char* name;
  int32 code;  // ECMA-335 II.23.1.16
  bool by_reference;
  const Class* klass;
};
struct FieldInfo {
  const Type* type;
  uint64 offset;  // a boxed object's, with its header of 16 bytes
  int32 flags;
};
struct Method {
  const char* name;
  bool instance;
  uint32 implementation_flags;
  uint32 count;  // parameters
  const Type* (*const* parameters)();
  const Type* (*result)();
};
struct Class {
  const char* name = "";
  const char* name_space = "";
  bool value_type = false;
  int32 flags = 0;
  uint32 size = 8, alignment = 8;
  const Type* underlying = nullptr;  // of an enum
  FieldInfo fields[9] = {};
  uint32 field_count = 0;
  const Method* methods = nullptr;
  uint32 method_count = 0;
  const Class* nested[2] = {};
  const Class* outer = nullptr;
};

inline constexpr Class generic_class = {.name = "List`1"};

template <class T, class... All>
constexpr int32 position_in(List<All...>) {
  int32 position = 0, found = 0;
  ((++position, found = __is_same(T, All) ? position : found), ...);
  return found;
}
struct None;
/// The types that are no structs, by their codes from 1 on.
using Coded = List<void, bool, char16_t, signed char, Byte, short, unsigned short, int, unsigned, long long,
                   unsigned long long, float, double, None, None, None, None, None, None, None, Generic*, None, None,
                   void*, None, None, None, Object*, Array*>;

template <class T>
struct TypeOf;

/// The type of a C++ type; made when it is first asked for.
template <class T>
struct TypeOf {
  static const Type* get() {
    static const Type type = make();
    return &type;
  }

 private:
  static Type make() {
    constexpr int32 code = position_in<T>(Coded());
    static Class klass = {.value_type = true};
    if constexpr (requires { typename T::IsStruct; }) {
      klass.size = sizeof(T), klass.alignment = alignof(T);
      if constexpr (requires { typename T::IsExplicit; }) klass.flags = 0x10;
      klass.fields[klass.field_count++] = {TypeOf<double>::get(), 16, 0x10};  // a static field is in no value
      T::each([]<class F>(uint64 offset) { klass.fields[klass.field_count++] = {TypeOf<F>::get(), 16 + offset, 0}; });
      return {"Struct", alignof(T) == 1 ? 21 : 17, false, &klass};  // without alignment: as if of a generic type
    } else if constexpr (__is_enum(T)) {
      klass.size = sizeof(T);
      klass.underlying = TypeOf<__underlying_type(T)>::get();
      return {"Enum", 17, false, &klass};
    } else if constexpr (code == 0) {
      Type referred = *TypeOf<__remove_pointer(T)>::get();
      referred.by_reference = true;
      return referred;
    }
    return {code == 8 ? "System.Int32" : code == 12 ? "System.Single" : "Other", code, false, &generic_class};
  }
};

struct Image {
  const Class* classes[3];
  const char* name = "";
};
extern const Image* assemblies[];

template <class T>
static const T* next(const T* rows, uint64 count, void** position) {
  const uint64 at = reinterpret_cast<uint64>(*position);
  if (at >= count) return nullptr;
  *position = reinterpret_cast<void*>(at + 1);
  return &rows[at];
}

struct Registration {
  char* name;
  void* function;
};
inline Registration registrations[2100];
inline uint32 registration_count = 0;

}  // namespace reflection

extern "C" {

using namespace reflection;

void* il2cpp_domain_get() { return assemblies; }
const Image** il2cpp_domain_get_assemblies(void*, uint64* count) {
  return *count = assemblies[1] == nullptr ? 1 : 2, assemblies;
}
const Image* il2cpp_assembly_get_image(const Image* assembly) { return assembly; }
const char* il2cpp_image_get_name(const Image* image) { return image->name; }
uint64 il2cpp_image_get_class_count(const Image* image) {
  return image->classes[1] == nullptr ? 1 : image->classes[2] == nullptr ? 2 : 3;
}
const Class* il2cpp_image_get_class(const Image* image, uint64 index) { return image->classes[index]; }
const Class* il2cpp_class_from_name(const Image* image, const char* name_space, const char* name) {
  for (volatile int i = 0; i < 20'000; i = i + 1) {  // time for others to come in between
  }
  for (const Class* klass : image->classes) {
    if (klass && strcmp(klass->name, name) == 0 && strcmp(klass->name_space, name_space) == 0) return klass;
  }
  return nullptr;
}
const Class* il2cpp_class_get_nested_types(const Class* klass, void** position) {
  const Class* const* nested = next(klass->nested, 2, position);
  return nested ? *nested : nullptr;
}
const char* il2cpp_class_get_name(const Class* klass) { return klass->name; }
const char* il2cpp_class_get_namespace(const Class* klass) { return klass->name_space; }
const Class* il2cpp_class_get_declaring_type(const Class* klass) { return klass->outer; }
const Method* il2cpp_class_get_methods(const Class* klass, void** position) {
  return next(klass->methods, klass->method_count, position);
}
const FieldInfo* il2cpp_class_get_fields(const Class* klass, void** position) {
  return next(klass->fields, klass->field_count, position);
}
bool il2cpp_class_is_enum(const Class* klass) { return klass->underlying != nullptr; }
const Type* il2cpp_class_enum_basetype(const Class* klass) { return klass->underlying; }
int32 il2cpp_class_get_flags(const Class* klass) { return klass->flags; }
bool il2cpp_class_is_valuetype(const Class* klass) { return klass->value_type; }
int32 il2cpp_class_value_size(const Class* klass, uint32* alignment) {
  return *alignment = klass->alignment, static_cast<int32>(klass->size);
}
const Class* il2cpp_class_from_type(const Type* type) { return type->klass; }
const char* il2cpp_method_get_name(const Method* method) { return method->name; }
uint32 il2cpp_method_get_param_count(const Method* method) { return method->count; }
const Type* il2cpp_method_get_param(const Method* method, uint32 index) { return method->parameters[index](); }
const Type* il2cpp_method_get_return_type(const Method* method) { return method->result(); }
bool il2cpp_method_is_instance(const Method* method) { return method->instance; }
uint32 il2cpp_method_get_flags(const Method* method, uint32* implementation) {
  return *implementation = method->implementation_flags, 0;
}
int32 il2cpp_type_get_type(const Type* type) { return type->code; }
bool il2cpp_type_is_byref(const Type* type) { return type->by_reference; }
char* il2cpp_type_get_name(const Type* type) { return strdup(type->name); }
void il2cpp_free(void* block) { free(block); }
int32 il2cpp_field_get_flags(const FieldInfo* field) { return field->flags; }
uint64 il2cpp_field_get_offset(const FieldInfo* field) { return field->offset; }
const Type* il2cpp_field_get_type(const FieldInfo* field) { return field->type; }

void il2cpp_add_internal_call(const char* name, void* function) {
  registrations[registration_count++] = {strdup(name), function};
}
void* il2cpp_resolve_icall(const char* name) {
  for (uint32 i = registration_count; i-- > 0;) {
    if (strcmp(registrations[i].name, name) == 0) return registrations[i].function;
  }
  return nullptr;
}
}
