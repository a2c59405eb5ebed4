// Strings.
#include "objc/ns_string.h"

#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "diag/log.h"
#include "support/locks.h"

namespace vlm {
namespace {

/// Held while a UTF-16 string is turned into UTF-8: constants of the game are shared by its threads.
constinit SrwLock conversion_lock;

char* allocate_text(std::uint64_t length) {
  auto* const text = static_cast<char*>(std::malloc(length + 1));
  if (text == nullptr) fatal_error("no memory for a string of %llu bytes", length);
  text[length] = 0;
  return text;
}

/// What other threads may read without the lock is whole before `info` says that it is UTF-8.
void publish_utf8(NSString& string, const char* text, std::uint64_t length) {
  string.data = text;
  string.length = length;
  __atomic_store_n(&string.info, ns_string_utf8_info, __ATOMIC_RELEASE);
}

void convert_to_utf8(NSString& string) {
  const std::lock_guard guard(conversion_lock);
  if ((string.info & ns_string_utf16_flag) == 0) return;  // another thread did
  const auto* const units = static_cast<const wchar_t*>(string.data);
  // Windows counts in 32 bits, and refuses a length of 0.
  const int unit_count = string.length > 0x7fff'ffff ? 0 : static_cast<int>(string.length);
  const int length =
      unit_count == 0 ? 0 : WideCharToMultiByte(CP_UTF8, 0, units, unit_count, nullptr, 0, nullptr, nullptr);
  char* const text = allocate_text(static_cast<std::uint64_t>(length));
  if (length != 0) WideCharToMultiByte(CP_UTF8, 0, units, unit_count, text, length, nullptr, nullptr);
  publish_utf8(string, text, static_cast<std::uint64_t>(length));
}

}  // namespace

NSString* ns_string_new(const char* text) {
  auto* const string = objc_new<NSString>(objc_class_NSString);
  const std::uint64_t length = text != nullptr ? std::strlen(text) : 0;
  char* const copy = allocate_text(length);
  if (length != 0) std::memcpy(copy, text, length);
  publish_utf8(*string, copy, length);
  return string;
}

const char* ns_string_utf8(ObjcObject* object) {
  if (!objc_is_kind_of(object, &objc_class_NSString)) return nullptr;
  auto& string = static_cast<NSString&>(*object);
  if (string.data == nullptr) publish_utf8(string, allocate_text(0), 0);
  if ((__atomic_load_n(&string.info, __ATOMIC_ACQUIRE) & ns_string_utf16_flag) != 0) convert_to_utf8(string);
  return static_cast<const char*>(string.data);
}

}  // namespace vlm
