// Copying and searching against plain loops, at every length and alignment that takes a way of its own.
#include "support/bytes.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <windows.h>
#include <doctest/doctest.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "posix/shims.h"

using namespace vlm;

/// What __builtin_cpu_supports looks at, in the compiler's runtime library.
extern "C" struct {
  unsigned vendor, type, subtype, features;
} __cpu_model;

namespace {

/// Runs it as this machine would, and as one without 32-byte vectors would.
template <class Run>
void on_both_machines(Run run) {
  run();
  constexpr unsigned avx2 = 1u << 10;
  const unsigned features = __cpu_model.features;
  __cpu_model.features &= ~avx2;
  run();
  __cpu_model.features = features;
}

/// Memory between two pages that must not be touched.
struct Fenced {
  static constexpr std::size_t size = 4096;
  char* bytes = static_cast<char*>(VirtualAlloc(nullptr, 3 * size, MEM_RESERVE, PAGE_NOACCESS)) + size;
  Fenced() { VirtualAlloc(bytes, size, MEM_COMMIT, PAGE_READWRITE); }
  ~Fenced() { VirtualFree(bytes - size, 0, MEM_RELEASE); }
  char* end() { return bytes + size; }
};

}  // namespace

TEST_CASE("nothing outside of what is copied, measured, compared or searched is touched") {
  on_both_machines([] {
    Fenced from, to;
    bool right = true;
    for (std::size_t size = 0; size < 600; ++size) {
      std::memset(from.bytes, 'x', Fenced::size);
      for (const bool at_the_end : {false, true}) {
        char* const a = at_the_end ? from.end() - size : from.bytes;
        char* const b = at_the_end ? to.end() - size : to.bytes;
        copy_bytes(b, a, size);
        right = right && compare_bytes(a, b, size) == 0 && find_byte(a, a + size, '!') == nullptr;
        if (size == 0) continue;
        // The wanted byte stands in front of the first, behind the last, or is the last one.
        char& last = a[size - 1];
        last = '!';
        right = right && find_byte(a, a + size, '!') == &last && find_byte(a, &last, '!') == nullptr;
        right = right && compare_bytes(a, b, size) < 0 && compare_bytes(b, a, size) > 0;
        last = '\xff';
        right = right && compare_bytes(a, b, size) > 0;
        last = '\0';
        right = right && text_length(a) == size - 1;
        if (a != from.bytes) {
          a[-1] = '\0';
          right = right && text_length(a) == size - 1 && (size == 1 || find_byte(a, &last, '\0') == nullptr);
          a[-1] = 'x';
        }
        last = 'x';
      }
    }
    CHECK(right);
  });
}

TEST_CASE("bytes are copied as if all were read first, strings that end with readable memory are compared") {
  const auto row = std::ranges::find(string_shims, std::string_view("_strcmp"), &ShimEntry::name);
  const auto compare =
      reinterpret_cast<SYSV std::int32_t (*)(const char*, const char*)>(const_cast<void*>(row->address));
  on_both_machines([&] {
    Fenced texts, others;
    bool right = true;
    for (std::size_t i = 0; i < Fenced::size; ++i) texts.bytes[i] = static_cast<char>(i * 31 + i / 256);
    for (const std::size_t size : {1, 40, 130, 700, 3000}) {  // forwards and backwards over itself
      for (const std::size_t shift : {1, 15, 64, 257}) {
        std::memcpy(others.bytes, texts.bytes, Fenced::size);
        copy_bytes(others.bytes + shift, others.bytes, size);
        right = right && std::memcmp(others.bytes + shift, texts.bytes, size) == 0;
        std::memcpy(others.bytes, texts.bytes, Fenced::size);
        copy_bytes(others.bytes, others.bytes + shift, size);
        right = right && std::memcmp(others.bytes, texts.bytes + shift, size) == 0;
      }
    }
    for (std::size_t size = 1; size < 70; ++size) {
      for (std::size_t shift = 0; shift < 18; ++shift) {
        char* const text = texts.end() - 1 - size - shift;
        char* const other = others.end() - 1 - size;
        for (std::size_t i = 0; i < size; ++i) text[i] = other[i] = static_cast<char>('a' + i % 7);
        text[size] = other[size] = '\0';
        right = right && compare(text, other) == 0;
        other[size - 1] = '\xff';  // bytes compare unsigned
        right = right && compare(text, other) < 0;
      }
    }
    CHECK(right);
  });
}
