// What a string is made of. Its methods are in ns_string_methods.cpp.
#include "objc/ns_string.h"

#include <windows.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "diag/log.h"
#include "support/locks.h"

namespace vlm {
namespace {

/// Held while a UTF-16 string is turned into UTF-8: constants of the game are shared by its threads.
constinit SrwLock conversion_lock;

void convert_to_utf8(NSString& string) {
  const std::lock_guard guard(conversion_lock);
  if ((string.info & ns_string_utf16_flag) == 0) return;  // another thread did
  const auto* const units = static_cast<const wchar_t*>(string.data);
  // Windows counts in 32 bits, and refuses a length of 0.
  const int unit_count = string.length > INT_MAX ? 0 : static_cast<int>(string.length);
  const int length =
      unit_count == 0 ? 0 : WideCharToMultiByte(CP_UTF8, 0, units, unit_count, nullptr, 0, nullptr, nullptr);
  char* const text = ns_string_buffer(static_cast<std::uint64_t>(length));
  if (length != 0) WideCharToMultiByte(CP_UTF8, 0, units, unit_count, text, length, nullptr, nullptr);
  ns_string_set(string, text, static_cast<std::uint64_t>(length));
}

}  // namespace

char* ns_string_buffer(std::uint64_t length) {
  auto* const text = static_cast<char*>(length == UINT64_MAX ? nullptr : std::malloc(length + 1));
  if (text == nullptr) fatal_error("no memory for a string of %llu bytes", length);
  text[length] = 0;
  return text;
}

/// Other threads read without the lock: text and length are set before `info` says that the string is UTF-8.
void ns_string_set(NSString& string, char* text, std::uint64_t length) {
  string.data = text;
  string.length = length;
  __atomic_store_n(&string.info, ns_string_utf8_info, __ATOMIC_RELEASE);
}

NSString* ns_string_new(ObjcClass& class_, std::string_view text) {
  char* const copy = ns_string_buffer(text.size());
  if (!text.empty()) std::memcpy(copy, text.data(), text.size());
  auto* const string = objc_new<NSString>(class_);
  ns_string_set(*string, copy, text.size());
  return string;
}

NSString* ns_string_new(const char* text) {
  return ns_string_new(objc_class_NSString, text != nullptr ? std::string_view(text) : std::string_view());
}

std::string_view ns_string_text_of_any(ObjcObject* object) {
  if (object == nullptr || !objc_is_kind_of(object, &objc_class_NSString)) return {};
  auto& string = static_cast<NSString&>(*object);
  if (string.data == nullptr) ns_string_set(string, ns_string_buffer(0), 0);
  if ((__atomic_load_n(&string.info, __ATOMIC_ACQUIRE) & ns_string_utf16_flag) != 0) convert_to_utf8(string);
  return {static_cast<const char*>(string.data), string.length};
}

const char* ns_string_utf8(ObjcObject* object) { return ns_string_text(object).data(); }

std::uint64_t ns_string_utf16_length(std::string_view text) {
  // Most texts are ASCII, which the host's conversion is slow for.
  std::uint64_t ascii = 0;
  while (ascii < text.size() && static_cast<signed char>(text[ascii]) >= 0) ++ascii;
  const std::uint64_t rest = text.size() - ascii;
  if (rest == 0) return ascii;
  if (rest >= INT_MAX) return 0;  // more than the host converts
  // With the NUL: a character that is cut off by the end of the text is converted in another way when nothing follows.
  const int units = MultiByteToWideChar(CP_UTF8, 0, text.data() + ascii, static_cast<int>(rest) + 1, nullptr, 0);
  return ascii + static_cast<std::uint64_t>(units > 0 ? units - 1 : 0);
}

}  // namespace vlm
