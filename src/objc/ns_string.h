// Strings, in the layout of the constants that compilers put into a game image.
#pragma once

#include <cstdint>

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

/// The text of a string object, NUL-terminated, as long as the object's text is not changed; null for a null object or
/// one that is no string. UTF-16 is converted once, in place.
const char* ns_string_utf8(ObjcObject* object);

}  // namespace vlm
