// Types of managed code in the classes of the System V AMD64 ABI, section 3.2.3.
#include "host/managed_calls.h"
#include "host/reflection.h"

namespace vlm {
namespace {

/// Element types, ECMA-335 II.23.1.16.
enum TypeCode {
  TYPE_VOID = 0x01,
  TYPE_BOOLEAN = 0x02,
  TYPE_CHAR = 0x03,
  TYPE_I1 = 0x04,
  TYPE_U1 = 0x05,
  TYPE_I2 = 0x06,
  TYPE_U2 = 0x07,
  TYPE_I4 = 0x08,
  TYPE_U4 = 0x09,
  TYPE_R4 = 0x0c,
  TYPE_R8 = 0x0d,
  TYPE_BYREF = 0x10,
  TYPE_VALUETYPE = 0x11,
  TYPE_GENERICINST = 0x15,
};

constexpr int FIELD_ATTRIBUTE_STATIC = 0x10;
constexpr std::uint64_t object_header_size = 16;  // what field offsets include
constexpr int max_nesting = 16;                   // of value types in 16 bytes

/// Of a field that is no value type.
std::uint64_t alignment_of(int code) {
  switch (code) {
    case TYPE_BOOLEAN:
    case TYPE_I1:
    case TYPE_U1: return 1;
    case TYPE_CHAR:
    case TYPE_I2:
    case TYPE_U2: return 2;
    case TYPE_I4:
    case TYPE_U4:
    case TYPE_R4: return 4;
    default: return 8;
  }
}

/// What the fields in each eightbyte of a value make of it.
struct Eightbytes {
  enum class Contents : std::uint8_t { none, integer, floating_point } contents[2] = {};

  /// A field's share. False when a value with such a field is passed in memory.
  bool add(std::uint64_t offset, int code) {
    if (offset >= 16 || offset % alignment_of(code) != 0) return false;
    Contents& eightbyte = contents[offset / 8];
    if (code != TYPE_R4 && code != TYPE_R8) {
      eightbyte = Contents::integer;
    } else if (eightbyte == Contents::none) {
      eightbyte = Contents::floating_point;
    }
    return true;
  }
};

/// Adds the fields of a value of this class that begins `base` bytes into the whole.
bool classify_fields(Il2CppClass* klass, std::uint64_t base, Eightbytes& eightbytes, int nesting = 0) {
  if (nesting > max_nesting) return false;
  void* position = nullptr;
  while (FieldInfo* const field = REFLECT(il2cpp_class_get_fields)(klass, &position)) {
    if ((REFLECT(il2cpp_field_get_flags)(field) & FIELD_ATTRIBUTE_STATIC) != 0) continue;
    const std::uint64_t offset = base + REFLECT(il2cpp_field_get_offset)(field) - object_header_size;
    const Il2CppType* const type = REFLECT(il2cpp_field_get_type)(field);
    if (REFLECT(il2cpp_type_is_byref)(type)) {
      if (!eightbytes.add(offset, TYPE_BYREF)) return false;
      continue;
    }
    int code = REFLECT(il2cpp_type_get_type)(type);
    if (code == TYPE_VALUETYPE || code == TYPE_GENERICINST) {
      Il2CppClass* const of_field = REFLECT(il2cpp_class_from_type)(type);
      if (REFLECT(il2cpp_class_is_enum)(of_field)) {
        const Il2CppType* const underlying = REFLECT(il2cpp_class_enum_basetype)(of_field);
        code = underlying != nullptr ? REFLECT(il2cpp_type_get_type)(underlying) : TYPE_I4;
      } else if (REFLECT(il2cpp_class_is_valuetype)(of_field)) {
        if (!classify_fields(of_field, offset, eightbytes, nesting + 1)) return false;
        continue;
      }
    }
    if (!eightbytes.add(offset, code)) return false;
  }
  return true;
}

ArgClass classify_value(Il2CppClass* klass) {
  std::uint32_t alignment = 0;
  ArgClass value = {.kind = ArgKind::value};
  value.size = static_cast<std::uint32_t>(REFLECT(il2cpp_class_value_size)(klass, &alignment));
  value.alignment = alignment != 0 ? alignment : 8;
  Eightbytes eightbytes;
  if (value.size > 16 || !classify_fields(klass, 0, eightbytes)) {
    value.in_memory = 1;
    return value;
  }
  value.eightbytes = static_cast<std::uint8_t>((value.size + 7) / 8);
  for (int i = 0; i < value.eightbytes; ++i) {
    const bool is_floating = eightbytes.contents[i] == Eightbytes::Contents::floating_point;
    value.eightbyte_classes[i] = is_floating ? EightbyteClass::floating_point : EightbyteClass::integer;
  }
  return value;
}

}  // namespace

ArgClass classify_type(const Il2CppType* type) {
  if (type == nullptr) return {};
  if (REFLECT(il2cpp_type_is_byref)(type)) return integer_class;
  switch (static_cast<int>(REFLECT(il2cpp_type_get_type)(type))) {
    case TYPE_VOID: return {};
    case TYPE_R4: return {.kind = ArgKind::single_precision, .size = 4};
    case TYPE_R8: return {.kind = ArgKind::double_precision, .size = 8};
    case TYPE_VALUETYPE:
    case TYPE_GENERICINST: break;
    default: return integer_class;
  }
  Il2CppClass* const klass = REFLECT(il2cpp_class_from_type)(type);
  if (!REFLECT(il2cpp_class_is_valuetype)(klass)) return integer_class;
  if (REFLECT(il2cpp_class_is_enum)(klass)) return classify_type(REFLECT(il2cpp_class_enum_basetype)(klass));
  return classify_value(klass);
}

}  // namespace vlm
