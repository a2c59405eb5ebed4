// Strings, in the layout of the constants that compilers put into a game image.
//
// A string's text is as many bytes as its length says, and a NUL behind them. Nothing checks that it is well-formed
// UTF-8: it is compared, copied and searched as bytes.
#pragma once

#include <cstdint>
#include <string_view>

#include "objc/object.h"

namespace vlm {

/// An instance of NSString or NSMutableString.
struct NSString : ObjcObject {
  std::uint64_t info;    // ns_string_utf8_info, or the compiler's flags
  const void* data;      // UTF-8 with a NUL behind it, or UTF-16; null in a string that was only allocated
  std::uint64_t length;  // bytes of UTF-8 without the NUL, or units of UTF-16
};
static_assert(sizeof(NSString) == 32);

constexpr std::uint64_t ns_string_utf8_info = 0x7c8;
constexpr std::uint64_t ns_string_utf16_flag = 0x10;

/// A new NSString with a copy of the text; null gives the empty string.
NSString* ns_string_new(const char* text);
/// The same with a class of the caller's choice.
NSString* ns_string_new(ObjcClass& class_, std::string_view text);

/// The text of a string object, NUL-terminated, as long as the object's text is not changed; null for a null object or
/// one that is no string. UTF-16 is converted once, in place.
const char* ns_string_utf8(ObjcObject* object);

/// ns_string_text without its short cut.
std::string_view ns_string_text_of_any(ObjcObject* object);

/// What ns_string_utf8 gives, with its length; data() may be null. Takes a short cut for strings of the library's
/// classes that are UTF-8 already, as searches look at many.
inline std::string_view ns_string_text(ObjcObject* object) {
  if (object != nullptr && (object->isa == &objc_class_NSString || object->isa == &objc_class_NSMutableString)) {
    const auto& string = static_cast<const NSString&>(*object);
    const bool is_utf8 = (__atomic_load_n(&string.info, __ATOMIC_ACQUIRE) & ns_string_utf16_flag) == 0;
    if (is_utf8 && string.data != nullptr) return {static_cast<const char*>(string.data), string.length};
  }
  return ns_string_text_of_any(object);
}

/// Gives a string a new text, which nobody else holds: `length` bytes from ns_string_buffer.
void ns_string_set(NSString& string, char* text, std::uint64_t length);

/// Room for a text of `length` bytes, the NUL behind it in place; never freed. Ends the process without memory.
char* ns_string_buffer(std::uint64_t length);

/// How many UTF-16 units a text has. A NUL stands behind it. Converted as Windows does (code page 65001): ill-formed bytes
/// become U+FFFD.
std::uint64_t ns_string_utf16_length(std::string_view text);

}  // namespace vlm
