// The CoreFoundation functions of game code, on the objects of Foundation: strings, the bundle, the locale.
#include <windows.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "diag/log.h"
#include "objc/ns_string.h"
#include "objc/shared_instance.h"
#include "objc/shims.h"
#include "objc/system_objects.h"
#include "support/handles.h"

namespace vlm {
namespace {

/// `CFStringBuiltInEncodings`, <CoreFoundation/CFString.h>. Every other one is answered with UTF-8.
enum CFStringEncoding : std::uint32_t {
  kCFStringEncodingUnicode = 0x100,
  kCFStringEncodingUTF8 = 0x0800'0100,
  kCFStringEncodingUTF16LE = 0x1400'0100,
};

SYSV ObjcObject* bundle_get_main_bundle() { return shared_instance<objc_class_NSBundle>(); }

/// 1.9.1 in the form of NumVersion.
SYSV std::uint32_t bundle_get_version_number(ObjcObject*) { return 0x0109'0100; }

SYSV ObjcObject* locale_copy_current() { return shared_instance<objc_class_NSLocale>(); }

SYSV NSString* locale_get_identifier(ObjcObject*) { return ns_string_new(locale_identifier); }

SYSV NSString* locale_get_value(ObjcObject*, ObjcObject* key) { return ns_locale_value(key); }

SYSV void release(ObjcObject*) {}

SYSV std::uint64_t string_get_length(ObjcObject* string) { return ns_string_utf16_length(ns_string_text(string)); }

SYSV std::uint64_t string_get_maximum_size(std::uint64_t length, std::uint32_t encoding) {
  return length * (encoding == kCFStringEncodingUTF8 ? 3 : 2);
}

SYSV std::uint8_t string_get_c_string(ObjcObject* string, char* buffer, std::int64_t size, std::uint32_t) {
  const std::string_view text = ns_string_text(string);
  if (text.data() == nullptr || buffer == nullptr || size <= 0) return false;
  if (text.size() >= static_cast<std::uint64_t>(size)) return false;
  std::memcpy(buffer, text.data(), text.size() + 1);
  return true;
}

template <class T>
UniqueHeap<T> allocate(std::uint64_t count) {
  UniqueHeap<T> block(static_cast<T*>(std::malloc(count * sizeof(T))));
  if (block == nullptr) fatal_error("no memory to convert a string (%llu bytes)", count * sizeof(T));
  return block;
}

/// The UTF-8 of some units; half a surrogate pair becomes U+FFFD. Writes at most `room` bytes, even when that
/// cuts a character. Returns how many bytes the whole has.
std::uint64_t to_utf8(const wchar_t* units, int count, char* buffer, std::uint64_t room) {
  if (count == 0) return 0;
  const int length = WideCharToMultiByte(CP_UTF8, 0, units, count, nullptr, 0, nullptr, nullptr);
  if (buffer == nullptr) return static_cast<std::uint64_t>(length);
  if (static_cast<std::uint64_t>(length) <= room) {
    WideCharToMultiByte(CP_UTF8, 0, units, count, buffer, length, nullptr, nullptr);
  } else {
    const UniqueHeap<char> whole = allocate<char>(static_cast<std::uint64_t>(length));
    WideCharToMultiByte(CP_UTF8, 0, units, count, whole.get(), length, nullptr, nullptr);
    std::memcpy(buffer, whole.get(), room);
  }
  return static_cast<std::uint64_t>(length);
}

/// `location` and `length`, a CFRange, count UTF-16 units and are clamped to the string; so is a `capacity` below 0.
/// Stores how many bytes it wrote, or would have without a buffer; returns how many units that were.
SYSV std::int64_t string_get_bytes(ObjcObject* string, std::int64_t location, std::int64_t length,
                                   std::uint32_t encoding, std::uint8_t /* loss_byte */, std::uint8_t /* external */,
                                   std::uint8_t* buffer, std::int64_t capacity, std::int64_t* used) {
  const std::string_view text = ns_string_text(string);
  UniqueHeap<wchar_t> units;
  std::int64_t unit_count = 0;
  if (!text.empty() && text.size() <= INT_MAX) {  // the host converts no more
    const int bytes = static_cast<int>(text.size());
    units = allocate<wchar_t>(text.size());  // never more units than bytes
    unit_count = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, units.get(), bytes);
  }

  std::int64_t end;
  if (__builtin_add_overflow(location, length, &end)) end = length < 0 ? 0 : unit_count;
  const std::int64_t start = std::clamp<std::int64_t>(location, 0, unit_count);
  const std::int64_t count = std::clamp(end, start, unit_count) - start;
  const wchar_t* const range = units.get() + start;
  const auto room = buffer != nullptr ? static_cast<std::uint64_t>(std::max<std::int64_t>(capacity, 0)) : UINT64_MAX;

  std::uint64_t bytes;
  if (encoding == kCFStringEncodingUTF16LE || encoding == kCFStringEncodingUnicode) {
    bytes = std::min(static_cast<std::uint64_t>(count) * 2, room & ~std::uint64_t{1});
    if (buffer != nullptr && bytes != 0) std::memcpy(buffer, range, bytes);
  } else {
    bytes = std::min(to_utf8(range, static_cast<int>(count), reinterpret_cast<char*>(buffer), room), room);
  }
  if (used != nullptr) *used = static_cast<std::int64_t>(bytes);
  return count;
}

}  // namespace

const ShimEntry core_foundation_rows[] = {
    {"_CFBundleGetMainBundle", shim(bundle_get_main_bundle)},
    {"_CFBundleGetVersionNumber", shim(bundle_get_version_number)},
    {"_CFLocaleCopyCurrent", shim(locale_copy_current)},
    {"_CFLocaleGetIdentifier", shim(locale_get_identifier)},
    {"_CFLocaleGetValue", shim(locale_get_value)},
    {"_CFRelease", shim(release)},
    {"_CFStringGetLength", shim(string_get_length)},
    {"_CFStringGetMaximumSizeForEncoding", shim(string_get_maximum_size)},
    {"_CFStringGetCString", shim(string_get_c_string)},
    {"_CFStringGetBytes", shim(string_get_bytes)},
};
constinit const ShimRows core_foundation_shims = core_foundation_rows;

}  // namespace vlm
