// Copying and searching against plain loops, at every length and alignment that takes a way of its own.
#include "support/bytes.h"

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

/// Memory between two pages that must not be touched.
struct Fenced {
  static constexpr std::size_t size = 4096;
  char* bytes = static_cast<char*>(VirtualAlloc(nullptr, 3 * size, MEM_RESERVE, PAGE_NOACCESS)) + size;
  Fenced() { VirtualAlloc(bytes, size, MEM_COMMIT, PAGE_READWRITE); }
  ~Fenced() { VirtualFree(bytes - size, 0, MEM_RELEASE); }
  char* end() { return bytes + size; }
};

}  // namespace

TEST_CASE("bytes are copied, measured, compared and searched, and nothing outside of them is touched") {
  const auto row = std::ranges::find(string_shims, std::string_view("_strcmp"), &ShimEntry::name);
  const auto compare =
      reinterpret_cast<SYSV std::int32_t (*)(const char*, const char*)>(const_cast<void*>(row->address));
  const unsigned features = __cpu_model.features;
  for (const unsigned without : {0u, 1u << 10}) {  // as this machine would, and as one without 32-byte vectors would
    __cpu_model.features = features & ~without;
    Fenced from, to;
    bool right = true;
    for (std::size_t size = 0; size < 600; ++size) {
      std::memset(from.bytes, 'x', Fenced::size);
      for (const int at_the_end : {0, 1, 2, 3}) {
        char* const a = at_the_end & 1 ? from.end() - size : from.bytes;
        char* const b = at_the_end & 2 ? to.end() - size : to.bytes;
        copy_bytes(b, a, size);
        right = right && compare_bytes(a, b, size) == 0 && find_byte(a, a + size, '!') == nullptr;
        if (size == 0) continue;
        // The wanted byte stands in front of the first, behind the last, or is the last one.
        char& last = a[size - 1];
        last = '!';
        right = right && find_byte(a, a + size, '!') == &last && find_byte(a, &last, '!') == nullptr;
        right = right && compare_bytes(a, b, size) < 0 && compare_bytes(b, a, size) > 0;
        b[size - 1] = last = '\0';
        right = right && text_length(a) == size - 1 && compare(a, b) == 0;
        if (a != from.bytes) a[-1] = '\0';
        right = right && text_length(a) == size - 1 && (size == 1 || find_byte(a, &last, '\0') == nullptr);
        if (a != from.bytes) a[-1] = 'x';
        if (size > 1) b[size - 2] = '\xff';  // bytes compare unsigned
        right = right && (size == 1 || (compare(a, b) < 0 && compare_bytes(a, b, size) < 0));
        last = 'x';
      }
    }
    for (const int size : {1, 40, 130, 700, 3000}) {  // over itself
      for (const int shift : {-257, -15, 15, 64}) {
        for (int i = 0; i < 4096; ++i) from.bytes[i] = to.bytes[i] = static_cast<char>(i * 31 + i / 256);
        copy_bytes(to.bytes + 300 + shift, to.bytes + 300, static_cast<std::uint64_t>(size));
        right = right && std::memcmp(to.bytes + 300 + shift, from.bytes + 300, static_cast<std::size_t>(size)) == 0;
      }
    }
    CHECK(right);
  }
  __cpu_model.features = features;
}
