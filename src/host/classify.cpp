// Types of managed code in the classes of the System V AMD64 ABI, section 3.2.3.
#include <algorithm>

#include "host/forward_table.h"
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
constexpr int TYPE_ATTRIBUTE_LAYOUT_MASK = 0x18, TYPE_ATTRIBUTE_EXPLICIT_LAYOUT = 0x10;
constexpr std::uint64_t object_header_size = 16;  // what field offsets include
constexpr int max_nesting = 16;                   // of value types in 16 bytes

/// Of a field that is no value type; its alignment, too.
std::uint64_t size_of(int code) {
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

/// A class's size as a value; an alignment that the game does not tell counts as 8.
struct Extent {
  std::uint64_t size, alignment;
};
Extent extent_of(Il2CppClass* klass) {
  std::uint32_t alignment = 0;
  const auto size = static_cast<std::uint32_t>(REFLECT(il2cpp_class_value_size)(klass, &alignment));
  return {size, alignment != 0 ? alignment : 8};
}

bool has_explicit_layout(Il2CppClass* klass) {
  const auto flags_of = forward_table.il2cpp_class_get_flags;  // an image may lack it
  return flags_of != nullptr && (flags_of(klass) & TYPE_ATTRIBUTE_LAYOUT_MASK) == TYPE_ATTRIBUTE_EXPLICIT_LAYOUT;
}

/// What the fields in each eightbyte of a value make of it.
struct Eightbytes {
  enum class Contents : std::uint8_t { none, integer, floating_point } contents[2] = {};

  /// A field's share. False when a value with such a field is passed in memory.
  bool add(std::uint64_t offset, int code) {
    if (offset >= 16 || offset % size_of(code) != 0) return false;
    if (code != TYPE_R4 && code != TYPE_R8) {
      add_bytes(offset, 1);
    } else if (contents[offset / 8] == Contents::none) {
      contents[offset / 8] = Contents::floating_point;
    }
    return true;
  }

  void add_bytes(std::uint64_t offset, std::uint64_t count) {
    for (std::uint64_t at = offset; at < offset + count && at < 16; ++at) contents[at / 8] = Contents::integer;
  }
};

/// Adds the fields of a value of this class that begins `base` bytes into the whole. Some of its bytes are declared
/// without being a field's, in the code that was compiled: those before each field of an explicit layout, and all of
/// one whose size was asked to be more than the fields need (an empty one has a byte).
bool classify_fields(Il2CppClass* klass, std::uint64_t base, Eightbytes& eightbytes, int nesting = 0) {
  if (nesting > max_nesting) return false;
  const bool is_explicit = has_explicit_layout(klass);
  std::uint64_t end = 0;  // of the last field
  void* position = nullptr;
  while (FieldInfo* const field = REFLECT(il2cpp_class_get_fields)(klass, &position)) {
    if ((REFLECT(il2cpp_field_get_flags)(field) & FIELD_ATTRIBUTE_STATIC) != 0) continue;
    const std::uint64_t offset = REFLECT(il2cpp_field_get_offset)(field) - object_header_size;
    if (is_explicit) eightbytes.add_bytes(base, offset);
    const Il2CppType* const type = REFLECT(il2cpp_field_get_type)(field);
    int code = REFLECT(il2cpp_type_is_byref)(type) ? TYPE_BYREF : REFLECT(il2cpp_type_get_type)(type);
    if (code == TYPE_VALUETYPE || code == TYPE_GENERICINST) {
      Il2CppClass* const of_field = REFLECT(il2cpp_class_from_type)(type);
      if (REFLECT(il2cpp_class_is_enum)(of_field)) {
        const Il2CppType* const underlying = REFLECT(il2cpp_class_enum_basetype)(of_field);
        code = underlying != nullptr ? REFLECT(il2cpp_type_get_type)(underlying) : TYPE_I4;
      } else if (REFLECT(il2cpp_class_is_valuetype)(of_field)) {
        if (!classify_fields(of_field, base + offset, eightbytes, nesting + 1)) return false;
        end = std::max(end, offset + extent_of(of_field).size);
        continue;
      }
    }
    if (!eightbytes.add(base + offset, code)) return false;
    end = std::max(end, offset + size_of(code));
  }
  const Extent extent = extent_of(klass);
  if (end + extent.alignment <= extent.size) eightbytes.add_bytes(base, extent.size);
  return true;
}

ArgClass classify_value(Il2CppClass* klass) {
  const Extent extent = extent_of(klass);
  ArgClass value = {.kind = ArgKind::value,
                    .size = static_cast<std::uint32_t>(extent.size),
                    .alignment = static_cast<std::uint32_t>(extent.alignment)};
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

void classify_method(const MethodInfo* method, IcallRecord& record) {
  std::int32_t count = 0;
  if (REFLECT(il2cpp_method_is_instance)(method)) record.arguments[count++] = integer_class;
  const std::uint32_t parameter_count = REFLECT(il2cpp_method_get_param_count)(method);
  for (std::uint32_t i = 0; i < parameter_count && count < max_managed_arguments; ++i) {
    record.arguments[count++] = classify_type(REFLECT(il2cpp_method_get_param)(method, i));
  }
  record.argument_count = count;
  record.result = classify_type(REFLECT(il2cpp_method_get_return_type)(method));
}

}  // namespace vlm
