// Copying and searching against plain loops, at every length and alignment that takes a way of its own.
#include "support/bytes.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <windows.h>
#include <doctest/doctest.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

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

TEST_CASE("bytes are copied as if all were read first, whichever way they overlap") {
  std::vector<char> original(33'000 + 600);
  for (std::size_t i = 0; i < original.size(); ++i) original[i] = static_cast<char>(i * 31 + i / 256);
  on_both_machines([&] {
    bool right = true;
    const auto copy = [&](std::size_t to, std::size_t from, std::size_t size) {
      std::vector<char> copied = original, expected = original;
      right = right && copy_bytes(copied.data() + to, copied.data() + from, size) == copied.data() + to;
      for (std::size_t i = 0; i < size; ++i) expected[to + i] = original[from + i];
      right = right && copied == expected;
    };
    for (std::size_t size = 0; size < 700; size += size < 300 ? 1 : 13) {
      for (const std::size_t to : {0, 1, 15, 31, 64, 100, 130, 257}) copy(to, 60, size);
    }
    for (const std::size_t size : {16'384, 32'767, 32'768, 33'000}) {
      copy(0, 500, size);
      copy(500, 0, size);
    }
    CHECK(right);
  });
}

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

TEST_CASE("the first of several bytes is found, and decides a comparison") {
  on_both_machines([] {
    std::vector<char> text(900, 'x'), same = text;
    bool right = true;
    for (std::size_t start = 0; start < 70; ++start) {
      for (std::size_t at = start; at < 640; at += 7) {
        text[at] = text[at + 1] = text[at + 130] = '\0';
        right = right && text_length(&text[start]) == at - start;
        right = right && find_byte(&text[start], text.data() + text.size(), '\0') == &text[at];
        right = right && compare_bytes(&text[start], &same[start], 200 + at - start) == -'x';
        text[at] = text[at + 1] = text[at + 130] = 'x';
      }
    }
    CHECK(right);
  });
}

TEST_CASE("strings that end with readable memory are compared, at every distance from the end") {
  const auto row = std::ranges::find(string_shims, std::string_view("_strcmp"), &ShimEntry::name);
  const auto compare =
      reinterpret_cast<SYSV std::int32_t (*)(const char*, const char*)>(const_cast<void*>(row->address));
  Fenced texts, others;
  std::memset(texts.bytes, 'x', Fenced::size);
  for (std::size_t size = 0; size < 70; ++size) {
    for (std::size_t shift = 0; shift < 18; ++shift) {
      char* const text = texts.end() - 1 - size - shift;
      char* const other = others.end() - 1 - size;
      for (std::size_t i = 0; i < size; ++i) text[i] = other[i] = static_cast<char>('a' + i % 7);
      text[size] = other[size] = '\0';
      CAPTURE(size);
      CAPTURE(shift);
      REQUIRE(compare(text, other) == 0);
      REQUIRE(compare(other, text) == 0);
      if (size == 0) continue;
      other[size - 1] = '\xff';  // bytes compare unsigned
      REQUIRE(compare(text, other) < 0);
      other[size - 1] = '\0';
      REQUIRE(compare(text, other) > 0);
    }
  }
}
