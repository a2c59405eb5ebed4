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
  const char* name;
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

template <class T>
constexpr Type scalar = {"", 0, false, nullptr};
#define SCALAR(T, name, code) \
  template <>                 \
  constexpr Type scalar<T> = {name, code, false, nullptr};
SCALAR(void, "System.Void", 1)
SCALAR(bool, "System.Boolean", 2)
SCALAR(char16_t, "System.Char", 3)
SCALAR(signed char, "System.SByte", 4)
SCALAR(char, "System.SByte", 4)
SCALAR(Byte, "System.Byte", 5)
SCALAR(short, "System.Int16", 6)
SCALAR(unsigned short, "System.UInt16", 7)
SCALAR(int, "System.Int32", 8)
SCALAR(unsigned, "System.UInt32", 9)
SCALAR(long long, "System.Int64", 10)
SCALAR(unsigned long long, "System.UInt64", 11)
SCALAR(float, "System.Single", 12)
SCALAR(double, "System.Double", 13)
SCALAR(void*, "System.IntPtr", 24)
SCALAR(Object*, "System.Object", 28)
SCALAR(Array*, "System.Single[]", 29)
inline constexpr Class generic_class = {.name = "List`1"};
template <>
constexpr Type scalar<Generic*> = {"List`1", 21, false, &generic_class};

struct FieldAdder {
  Class& klass;
  template <class F>
  void field(uint64 offset);
};

template <class T>
constexpr bool is_generic = false;
template <class A, class B>
constexpr bool is_generic<G2<A, B>> = true;

/// The type of a C++ type; made when it is first asked for.
template <class T>
struct TypeOf {
  static const Type* get() {
    if constexpr (requires { typename T::IsStruct; }) {
      static Class klass = make_class();
      static const Type type = {"Struct", is_generic<T> ? 21 : 17, false, &klass};
      return &type;
    } else if constexpr (__is_enum(T)) {
      static const Class klass = {
          .name = "Enum", .value_type = true, .size = sizeof(T), .underlying = TypeOf<__underlying_type(T)>::get()};
      static const Type type = {"Enum", 17, false, &klass};
      return &type;
    } else {
      return &scalar<T>;
    }
  }

 private:
  static Class make_class() {
    Class made = {.name = "Struct", .value_type = true, .size = sizeof(T), .alignment = alignof(T)};
    if constexpr (requires { typename T::IsExplicit; }) made.flags = 0x10;
    // A static field is in no value.
    made.fields[made.field_count++] = {TypeOf<double>::get(), 16, 0x10};
    T::each(FieldAdder{made});
    return made;
  }
};
template <class T>
  requires(scalar<T*>.code == 0)
struct TypeOf<T*> {
  static const Type* get() {
    static const Type type = [] {
      Type referred = *TypeOf<T>::get();
      referred.by_reference = true;
      return referred;
    }();
    return &type;
  }
};

template <class F>
void FieldAdder::field(uint64 offset) {
  klass.fields[klass.field_count++] = {TypeOf<F>::get(), 16 + offset, 0};
}

struct Image {
  const Class* classes[3];
  const char* name = "";
};
extern const Image* assemblies[];
inline bool throws = false;  // instead of an answer

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

inline int32 lookups = 0;  // of classes by name

void* il2cpp_domain_get() { return assemblies; }
const Image** il2cpp_domain_get_assemblies(void*, uint64* count) {
  for (*count = 0; assemblies[*count] != nullptr; ++*count) {
  }
  return assemblies;
}
const Image* il2cpp_assembly_get_image(const Image* assembly) { return assembly; }
const char* il2cpp_image_get_name(const Image* image) { return image->name; }
uint64 il2cpp_image_get_class_count(const Image* image) {
  uint64 count = 0;
  for (const Class* klass : image->classes) count += klass != nullptr;
  return count;
}
const Class* il2cpp_image_get_class(const Image* image, uint64 index) { return image->classes[index]; }
const Class* il2cpp_class_from_name(const Image* image, const char* name_space, const char* name) {
  __atomic_fetch_add(&lookups, 1, __ATOMIC_SEQ_CST);
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
  *alignment = klass->alignment;
  return static_cast<int32>(klass->size);
}
const Class* il2cpp_class_from_type(const Type* type) { return type->klass; }
const char* il2cpp_method_get_name(const Method* method) { return method->name; }
uint32 il2cpp_method_get_param_count(const Method* method) {
  if (throws) throw 1;
  return method->count;
}
const Type* il2cpp_method_get_param(const Method* method, uint32 index) { return method->parameters[index](); }
const Type* il2cpp_method_get_return_type(const Method* method) { return method->result(); }
bool il2cpp_method_is_instance(const Method* method) { return method->instance; }
uint32 il2cpp_method_get_flags(const Method* method, uint32* implementation) {
  *implementation = method->implementation_flags;
  return 0;
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
