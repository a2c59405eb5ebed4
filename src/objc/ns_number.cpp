// Numbers and raw data.
#include "objc/ns_number.h"

#include <limits>

#include "abi/format.h"
#include "objc/ns_string.h"

namespace vlm {
namespace {

/// What the processor's conversion gives for what 64 bits cannot hold, and for NaN.
constexpr std::int64_t no_integer = std::numeric_limits<std::int64_t>::min();

/// Toward zero.
std::int64_t integer_from_double(double value) {
  return value >= -0x1p63 && value < 0x1p63 ? static_cast<std::int64_t>(value) : no_integer;
}

NSNumber* number_from(NumberKind kind, std::int64_t integer, double floating_point) {
  auto* const number = objc_new<NSNumber>(objc_class_NSNumber);
  number->kind = kind;
  number->integer = integer;
  number->floating_point = floating_point;
  return number;
}

}  // namespace

NSNumber* ns_number_from_int64(std::int64_t value) {
  return number_from(NumberKind::integer, value, static_cast<double>(value));
}

NSNumber* ns_number_from_double(double value) {
  return number_from(NumberKind::floating_point, integer_from_double(value), value);
}

namespace {

SYSV std::int32_t int_value(NSNumber* receiver, Selector) { return static_cast<std::int32_t>(receiver->integer); }

SYSV std::int64_t long_long_value(NSNumber* receiver, Selector) { return receiver->integer; }

SYSV double double_value(NSNumber* receiver, Selector) { return receiver->floating_point; }

SYSV float float_value(NSNumber* receiver, Selector) { return static_cast<float>(receiver->floating_point); }

SYSV ObjcBool bool_value(NSNumber* receiver, Selector) {
  return receiver->integer != 0 || receiver->floating_point != 0.0;
}

/// Written by game code's printf: the host's writes exponents and infinities in another way.
SYSV NSString* string_value(NSNumber* receiver, Selector) {
  const bool is_integer = receiver->kind == NumberKind::integer;
  const void* const value = is_integer ? static_cast<const void*>(&receiver->integer) : &receiver->floating_point;
  // Every register is taken, so the list's only argument is in memory.
  SysvVaList arguments = {SAVE_AREA_XMM, SAVE_AREA_SIZE, static_cast<const std::byte*>(value), nullptr};
  char text[64];
  format_text(text, sizeof text, is_integer ? "%lld" : "%.17g", arguments);
  return ns_string_new(text);
}

SYSV ObjcBool is_equal(NSNumber* receiver, Selector, ObjcObject* other) {
  return objc_is_kind_of(other, &objc_class_NSNumber) && ns_numbers_equal(*receiver, *static_cast<NSNumber*>(other));
}

SYSV NSNumber* number_with_int(ObjcClass*, Selector, std::int32_t value) { return ns_number_from_int64(value); }

SYSV NSNumber* number_with_long_long(ObjcClass*, Selector, std::int64_t value) { return ns_number_from_int64(value); }

SYSV NSNumber* number_with_double(ObjcClass*, Selector, double value) { return ns_number_from_double(value); }

SYSV const void* bytes(NSData* receiver, Selector) { return receiver->bytes; }

SYSV std::uint64_t length(NSData* receiver, Selector) { return receiver->length; }

}  // namespace

const MethodRow NSNumber_methods[] = {
    {"intValue", shim(int_value)},
    {"integerValue", shim(long_long_value)},
    {"longLongValue", shim(long_long_value)},
    {"unsignedIntegerValue", shim(long_long_value)},
    {"doubleValue", shim(double_value)},
    {"floatValue", shim(float_value)},
    {"boolValue", shim(bool_value)},
    {"stringValue", shim(string_value)},
    {"description", shim(string_value)},
    {"isEqual:", shim(is_equal)},
    {"hash", shim(long_long_value)},
    {},
};

const MethodRow NSNumber_class_methods[] = {
    {"numberWithInt:", shim(number_with_int)},
    {"numberWithBool:", shim(number_with_int)},
    {"numberWithInteger:", shim(number_with_long_long)},
    {"numberWithUnsignedInteger:", shim(number_with_long_long)},
    {"numberWithLongLong:", shim(number_with_long_long)},
    {"numberWithDouble:", shim(number_with_double)},
    {},
};

const MethodRow NSData_methods[] = {
    {"bytes", shim(bytes)},
    {"length", shim(length)},
    {},
};

const MethodRow NSData_class_methods[] = {{}};

}  // namespace vlm
