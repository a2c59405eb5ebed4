// What strings do for game code. Where a string is asked for, null and other objects count as none.
#include <cstdlib>
#include <cstring>

#include "abi/entries.h"
#include "abi/format.h"
#include "objc/ns_collections.h"
#include "objc/ns_number.h"
#include "objc/ns_string.h"
#include "objc/plain_methods.h"
#include "support/hash.h"

namespace vlm {
namespace {

SYSV const char* utf8_string(NSString* receiver, Selector) { return ns_string_utf8(receiver); }

SYSV std::uint64_t length(NSString* receiver, Selector) { return ns_string_utf16_length(ns_string_text(receiver)); }

SYSV ObjcBool is_equal(NSString* receiver, Selector, ObjcObject* other) {
  const std::string_view text = ns_string_text(other);
  return text.data() != nullptr && text == ns_string_text(receiver);
}

SYSV std::uint64_t hash(NSString* receiver, Selector) { return fnv1a(ns_string_text(receiver)); }

/// The host's strtoll reads decimal digits as game code's does, and gives the nearest value for too many.
SYSV std::int64_t long_long_value(NSString* receiver, Selector) {
  return std::strtoll(ns_string_utf8(receiver), nullptr, 10);
}

/// macOS's atoi, too, is the low half of a 64-bit value.
SYSV std::int32_t int_value(NSString* receiver, Selector selector) {
  return static_cast<std::int32_t>(long_long_value(receiver, selector));
}

SYSV double double_value(NSString* receiver, Selector) { return std::strtod(ns_string_utf8(receiver), nullptr); }

SYSV NSString* copy(NSString* receiver, Selector) {
  return ns_string_new(objc_class_NSString, ns_string_text(receiver));
}

SYSV NSString* mutable_copy(NSString* receiver, Selector) {
  return ns_string_new(objc_class_NSMutableString, ns_string_text(receiver));
}

SYSV NSCollection* components_separated_by_string(NSString* receiver, Selector, ObjcObject* separator_object) {
  std::string_view rest = ns_string_text(receiver);
  const std::string_view separator = ns_string_text(separator_object);
  auto* const pieces = objc_new<NSCollection>(objc_class_NSMutableArray);
  for (;;) {
    const std::size_t end = separator.empty() ? rest.npos : rest.find(separator);
    ns_array_append(*pieces, ns_string_new(objc_class_NSString, rest.substr(0, end)));
    if (end == rest.npos) return pieces;
    rest.remove_prefix(end + separator.size());
  }
}

void set_text(NSString& string, std::string_view first, std::string_view second = {}) {
  char* const text = ns_string_buffer(first.size() + second.size());
  if (!first.empty()) std::memcpy(text, first.data(), first.size());
  if (!second.empty()) std::memcpy(text + first.size(), second.data(), second.size());
  ns_string_set(string, text, first.size() + second.size());
}

SYSV NSString* init_with_string(NSString* receiver, Selector, ObjcObject* other) {
  set_text(*receiver, ns_string_text(other));
  return receiver;
}

SYSV NSString* init_with_data(NSString* receiver, Selector, ObjcObject* data, std::uint64_t /* encoding */) {
  std::string_view text;
  if (objc_is_kind_of(data, &objc_class_NSData)) {
    const auto& bytes = *static_cast<NSData*>(data);
    const auto* const start = static_cast<const char*>(bytes.bytes);
    if (start != nullptr) text = {start, strnlen(start, bytes.length)};
  }
  set_text(*receiver, text);
  return receiver;
}

SYSV NSString* string_with_utf8_string(ObjcClass* receiver, Selector, const char* text) {
  return text != nullptr ? ns_string_new(*receiver, text) : nullptr;
}

/// The old text stays where it is: game code may still hold it.
SYSV void append_string(NSString* receiver, Selector, ObjcObject* other) {
  const std::string_view text = ns_string_text(other);
  if (text.data() != nullptr) set_text(*receiver, ns_string_text(receiver), text);
}

}  // namespace

extern "C" SYSV void* stringWithFormat_body(void* self, Selector, void* format, SysvVaList* arguments) {
  const char* const format_string = ns_string_utf8(static_cast<ObjcObject*>(format));
  auto& class_ = *static_cast<ObjcClass*>(self);
  if (format_string == nullptr) return ns_string_new(class_, {});
  char text[2048];
  SysvVaList list = *arguments;
  const std::uint64_t length = format_text(text, sizeof text, format_string, list);
  if (length < sizeof text) return ns_string_new(class_, {text, length});
  char* const long_text = ns_string_buffer(length);
  list = *arguments;
  format_text(long_text, length + 1, format_string, list);
  auto* const string = objc_new<NSString>(class_);
  ns_string_set(*string, long_text, length);
  return string;
}

const MethodRow NSString_methods[] = {
    {"UTF8String", shim(utf8_string)},
    {"length", shim(length)},
    {"isEqualToString:", shim(is_equal)},
    {"isEqual:", shim(is_equal)},
    {"hash", shim(hash)},
    {"description", shim(return_self)},
    {"stringValue", shim(return_self)},
    {"intValue", shim(int_value)},
    {"integerValue", shim(long_long_value)},
    {"longLongValue", shim(long_long_value)},
    {"doubleValue", shim(double_value)},
    {"copy", shim(copy)},
    {"mutableCopy", shim(mutable_copy)},
    {"componentsSeparatedByString:", shim(components_separated_by_string)},
    {"initWithString:", shim(init_with_string)},
    {"initWithData:encoding:", shim(init_with_data)},
    {},
};

const MethodRow NSString_class_methods[] = {
    {"stringWithUTF8String:", shim(string_with_utf8_string)},
    {"stringWithFormat:", shim(stringWithFormat_entry)},
    {},
};

const MethodRow NSMutableString_methods[] = {
    {"appendString:", shim(append_string)},
    {},
};

const MethodRow NSMutableString_class_methods[] = {{}};

}  // namespace vlm
