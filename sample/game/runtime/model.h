// The objects of the managed world: what the interface passes as opaque pointers is defined here.
//
//   Il2CppAssembly -- Il2CppImage -- Il2CppClass -+- FieldInfo
//                                                 +- MethodInfo -- code, and how to call it
//                                                 +- nested classes
//
// Metadata is tables (corlib.cpp and ../game). They become part of the domain when their assembly registers itself,
// in an initializer behind its tables, so before anything of the interface is called. Registering fills in what a
// table cannot say about itself: the owner of each row.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "runtime/exports.h"

/// A view of a table.
template <class T>
struct Rows {
  T* first = nullptr;
  size_t count = 0;

  constexpr Rows() = default;
  template <size_t N>
  constexpr Rows(T (&table)[N]) : first(table), count(N) {}

  T* begin() const { return first; }
  T* end() const { return first + count; }
  /// The interface walks a table with a void* that starts as null: the position of the row to come.
  T* next(void** position) const {
    const auto at = reinterpret_cast<uintptr_t>(*position);
    if (at >= count) return nullptr;
    *position = reinterpret_cast<void*>(at + 1);
    return first + at;
  }
};

/// Element types as ECMA-335 numbers them, II.23.1.16.
enum TypeCode : uint8_t {
  TYPE_VOID = 1,
  TYPE_BOOLEAN = 2,
  TYPE_CHAR = 3,
  TYPE_I1 = 4,
  TYPE_U1 = 5,
  TYPE_I2 = 6,
  TYPE_U2 = 7,
  TYPE_I4 = 8,
  TYPE_U4 = 9,
  TYPE_I8 = 10,
  TYPE_U8 = 11,
  TYPE_R4 = 12,
  TYPE_R8 = 13,
  TYPE_STRING = 14,
  TYPE_VALUETYPE = 17,
  TYPE_CLASS = 18,
  TYPE_I = 24,
  TYPE_OBJECT = 28,
  TYPE_SZARRAY = 29,
};

struct Il2CppType {
  Il2CppClass* klass;
  TypeCode code;
  bool by_reference = false;
};

// Attributes, ECMA-335 II.23.1.
enum ClassFlags : uint32_t {
  CLASS_PUBLIC = 0x1,
  CLASS_NESTED_PUBLIC = 0x2,
  CLASS_ABSTRACT = 0x80,
  CLASS_SEALED = 0x100,
};
enum FieldFlags : int32_t { FIELD_PUBLIC = 0x6, FIELD_STATIC = 0x10, FIELD_LITERAL = 0x40 };
enum MethodFlags : uint32_t { METHOD_PUBLIC = 0x6, METHOD_STATIC = 0x10 };
enum MethodImplementation : uint32_t { METHOD_INTERNAL_CALL = 0x1000 };

struct FieldInfo {
  const char* name;
  const Il2CppType* type;
  int32_t flags;
  int32_t offset;       // of an instance field: from the start of the (boxed) object; of a static one: in static_data
  int32_t literal = 0;  // value of a FIELD_LITERAL field, which occupies no memory
  Il2CppClass* parent = nullptr;
};

struct ParameterInfo {
  const char* name;
  const Il2CppType* type;
};

/// Calls `method->code` with arguments as the interface passes them: references as they are, values by address.
/// A value that comes back is boxed; null stands for void.
using Invoker = Il2CppObject* (*)(const MethodInfo* method, void* self, void** arguments);

struct MethodInfo {
  void* code;  // instance first, then the parameters, then the MethodInfo itself (not for internal calls)
  Invoker invoke;
  const char* name;
  const Il2CppType* returns;
  Rows<const ParameterInfo> parameters;
  uint32_t flags;
  uint32_t implementation = 0;
  Il2CppClass* parent = nullptr;

  bool is_static() const { return (flags & METHOD_STATIC) != 0; }
};

struct Il2CppClass {
  const char* name;
  const char* name_space = "";
  Il2CppClass* parent = nullptr;
  Il2CppType type;
  uint32_t flags = CLASS_PUBLIC;
  uint32_t instance_size = 0;  // of an object in bytes, its header included
  uint32_t alignment = 8;
  Rows<FieldInfo> fields = {};
  Rows<MethodInfo> methods = {};
  Rows<Il2CppClass* const> nested = {};
  Il2CppClass* element = nullptr;  // of an array: what it holds; of an enum: the integer it is made of
  void* static_data = nullptr;

  Il2CppClass* declaring = nullptr;
  const Il2CppImage* image = nullptr;
  bool initialized = false;
  Il2CppClass* array_class = nullptr;  // one-dimensional array of this class, made when first asked for

  bool is_valuetype() const { return type.code <= TYPE_R8 || type.code == TYPE_VALUETYPE || type.code == TYPE_I; }
  bool is_enum() const { return type.code == TYPE_VALUETYPE && element != nullptr; }
  bool is_array() const { return type.code == TYPE_SZARRAY; }
};

struct Il2CppImage {
  const char* name;
  Rows<Il2CppClass* const> classes;  // nested ones too
  const Il2CppAssembly* assembly = nullptr;
};

struct Il2CppAssembly {
  const char* name;
  Il2CppImage* image;
};

struct Il2CppDomain {
  static constexpr size_t max_assemblies = 8;
  const Il2CppAssembly* assemblies[max_assemblies];
  size_t assembly_count;
};

/// Every object begins with this; the data of a boxed value comes right behind.
struct Il2CppObject {
  Il2CppClass* klass;
  void* monitor;  // of a lock; nothing is locked here
};
static_assert(sizeof(Il2CppObject) == 16, "field offsets are counted from here");

struct Il2CppArray {
  Il2CppObject object;
  void* bounds;  // always null: arrays here have one dimension that starts at 0
  uintptr_t length;

  void* data() { return this + 1; }
};

struct Il2CppString {
  Il2CppObject object;
  int32_t length;      // in UTF-16 units
  Il2CppChar chars[];  // and a 0
};

struct Il2CppException {
  Il2CppObject object;
  Il2CppString* message;
  const MethodInfo* raised_in;  // null outside of any invocation
};

/// Makes an assembly part of the domain while the image's initializers run.
struct AssemblyRegistration {
  explicit AssemblyRegistration(Il2CppAssembly& assembly);
};

// The basic classes, corlib.cpp.
extern Il2CppClass object_class, value_type_class, enum_class, void_class, boolean_class, byte_class, char_class,
    int32_class, uint32_class, int64_class, single_class, double_class, intptr_class, string_class, array_class,
    exception_class, argument_null_exception_class, missing_method_exception_class, thread_class;
