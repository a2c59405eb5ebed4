// Managed strings: UTF-16, as every managed runtime has them, made from and turned into UTF-8.
#include "runtime/runtime.h"

static constexpr uint32_t replacement_character = 0xFFFD;

/// Takes one code point off the front of [at, end); ill-formed bytes are taken singly.
static uint32_t next_code_point(const char*& at, const char* end) {
  const auto first = static_cast<uint8_t>(*at++);
  if (first < 0x80) return first;
  if (first < 0xC2 || first >= 0xF5) return replacement_character;
  const int trailing = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  if (end - at < trailing) return replacement_character;
  uint32_t point = first & (0x3Fu >> trailing);
  for (int i = 0; i < trailing; ++i) {
    const auto byte = static_cast<uint8_t>(at[i]);
    if ((byte & 0xC0) != 0x80) return replacement_character;
    point = point << 6 | (byte & 0x3Fu);
  }
  constexpr uint32_t smallest[] = {0, 0x80, 0x800, 0x10000};
  const bool surrogate = point >= 0xD800 && point < 0xE000;
  if (point < smallest[trailing] || point > 0x10FFFF || surrogate) return replacement_character;
  at += trailing;
  return point;
}

/// Writes the UTF-16 units when `units` is not null; returns how many there are.
static size_t utf16_from_utf8(const char* text, size_t size, Il2CppChar* units) {
  size_t count = 0;
  const auto put = [&](uint32_t unit) {
    if (units != nullptr) units[count] = static_cast<Il2CppChar>(unit);
    ++count;
  };
  for (const char *at = text, *end = text + size; at < end;) {
    const uint32_t point = next_code_point(at, end);
    if (point < 0x10000) {
      put(point);
    } else {
      put(0xD800 + ((point - 0x10000) >> 10));
      put(0xDC00 + ((point - 0x10000) & 0x3FF));
    }
  }
  return count;
}

/// Puts the UTF-8 bytes of the unit (or pair) at `at` into `bytes`; returns their number and moves past it.
static size_t utf8_from_utf16(const Il2CppChar*& at, const Il2CppChar* end, char bytes[4]) {
  uint32_t point = *at++;
  if (point >= 0xD800 && point < 0xDC00 && at < end && *at >= 0xDC00 && *at < 0xE000) {
    point = 0x10000 + ((point - 0xD800) << 10) + (*at++ - 0xDC00u);
  } else if (point >= 0xD800 && point < 0xE000) {
    point = replacement_character;
  }
  const auto trail = [](uint32_t bits) { return static_cast<char>(0x80 | (bits & 0x3F)); };
  if (point < 0x80) {
    bytes[0] = static_cast<char>(point);
    return 1;
  }
  if (point < 0x800) {
    bytes[0] = static_cast<char>(0xC0 | point >> 6);
    bytes[1] = trail(point);
    return 2;
  }
  if (point < 0x10000) {
    bytes[0] = static_cast<char>(0xE0 | point >> 12);
    bytes[1] = trail(point >> 6);
    bytes[2] = trail(point);
    return 3;
  }
  bytes[0] = static_cast<char>(0xF0 | point >> 18);
  bytes[1] = trail(point >> 12);
  bytes[2] = trail(point >> 6);
  bytes[3] = trail(point);
  return 4;
}

static Il2CppString* new_string_of_units(size_t count) {
  auto* string = reinterpret_cast<Il2CppString*>(
      new_object(&string_class, sizeof(Il2CppString) + (count + 1) * sizeof(Il2CppChar)));
  string->length = static_cast<int32_t>(count);
  return string;
}

static Il2CppString* new_string(const char* text, size_t size) {
  Il2CppString* string = new_string_of_units(utf16_from_utf8(text, size, nullptr));
  utf16_from_utf8(text, size, string->chars);
  return string;
}

Il2CppString* new_string(const Text& text) { return new_string(text.c_str(), text.size()); }

Text utf8_of(const Il2CppString* string) {
  Text text;
  if (string == nullptr) return text;
  char bytes[4];
  for (const Il2CppChar *at = string->chars, *end = at + string->length; at < end;) {
    const size_t size = utf8_from_utf16(at, end, bytes);
    text.append(bytes, size);
  }
  return text;
}

char* utf8_copy(const Il2CppChar* text) {
  const Il2CppChar* end = text;
  while (*end != 0) ++end;
  auto* copy = static_cast<char*>(malloc(static_cast<size_t>(end - text) * 3 + 1));
  size_t size = 0;
  for (const Il2CppChar* at = text; at < end;) {
    char bytes[4];
    const size_t of_point = utf8_from_utf16(at, end, bytes);
    memcpy(copy + size, bytes, of_point);
    size += of_point;
  }
  copy[size] = 0;
  return copy;
}

int32_t il2cpp_string_length(Il2CppString* string) { return string->length; }
Il2CppChar* il2cpp_string_chars(Il2CppString* string) { return string->chars; }

Il2CppString* il2cpp_string_new(const char* text) { return new_string(text, strlen(text)); }

Il2CppString* il2cpp_string_new_utf16(const Il2CppChar* text, int32_t length) {
  Il2CppString* string = new_string_of_units(static_cast<size_t>(length));
  memcpy(string->chars, text, static_cast<size_t>(length) * sizeof(Il2CppChar));
  return string;
}

// Interned strings: of each text one string that stands for all equal ones.

static SpinLock interned_lock;
static struct Interned {
  Interned* next;
  Il2CppString* string;
}* interned;

static Il2CppString* find_interned(const Il2CppString* string) {
  for (const Interned* each = interned; each != nullptr; each = each->next) {
    const size_t size = static_cast<size_t>(string->length) * sizeof(Il2CppChar);
    if (each->string->length == string->length && memcmp(each->string->chars, string->chars, size) == 0) {
      return each->string;
    }
  }
  return nullptr;
}

Il2CppString* il2cpp_string_intern(Il2CppString* string) {
  const Locked locked(interned_lock);
  if (Il2CppString* known = find_interned(string)) return known;
  auto* entry = static_cast<Interned*>(malloc(sizeof(Interned)));
  *entry = {interned, string};
  interned = entry;
  return string;
}
