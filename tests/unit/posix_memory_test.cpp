// What game code cannot provoke or see: strings at the very end of memory, the registry of aligned blocks, the
// translation of host error numbers.
#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <windows.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>

#include "binding/shim_table.h"
#include "posix/aligned_blocks.h"
#include "posix/error_numbers.h"
#include "posix/shims.h"
#include "support/sysv.h"

using namespace vlm;

namespace {

template <class Function>
Function shim_function(const char* name) {
  for (const ShimEntry& row : string_shims) {
    if (std::strcmp(row.name, name) == 0) return reinterpret_cast<Function>(const_cast<void*>(row.address));
  }
  FAIL(name);
  return nullptr;
}

}  // namespace

TEST_CASE("strings that end with readable memory, at every distance from the end") {
  constexpr std::size_t page = 4096;
  const auto readable_page = [] {
    auto* const pages = static_cast<char*>(VirtualAlloc(nullptr, 2 * page, MEM_RESERVE, PAGE_NOACCESS));
    VirtualAlloc(pages, page, MEM_COMMIT, PAGE_READWRITE);
    std::memset(pages, 'x', page);
    return pages;
  };
  char* const end = readable_page() + page;
  char* const other_end = readable_page() + page;
  const auto length = shim_function<SYSV std::uint64_t (*)(const char*)>("_strlen");
  const auto compare = shim_function<SYSV std::int32_t (*)(const char*, const char*)>("_strcmp");
  for (std::size_t size = 0; size < 70; ++size) {
    for (std::size_t shift = 0; shift < 18; ++shift) {
      char* const text = end - 1 - size - shift;
      char* const other = other_end - 1 - size;
      for (std::size_t i = 0; i < size; ++i) text[i] = other[i] = static_cast<char>('a' + i % 7);
      text[size] = other[size] = '\0';
      CAPTURE(size);
      CAPTURE(shift);
      REQUIRE(length(text) == size);
      REQUIRE(compare(text, other) == 0);
      REQUIRE(compare(other, text) == 0);
      if (size == 0) continue;
      other[size - 1] = '\xff';  // bytes compare unsigned
      REQUIRE(compare(text, other) < 0);
      other[size - 1] = '\0';
      REQUIRE(compare(text, other) > 0);
    }
  }
  VirtualFree(end - page, 0, MEM_RELEASE);
  VirtualFree(other_end - page, 0, MEM_RELEASE);
}

TEST_CASE("the registry of aligned blocks finds each block and no other") {
  const auto registry = std::make_unique<AlignedBlocks>();
  constexpr std::uint64_t count = 200'000;  // three to a bucket
  const auto block = [](std::uint64_t i) { return reinterpret_cast<void*>(0x7F0000000000 + i * 32); };
  std::uint64_t added = 0, found = 0, removed = 0, left = 0;
  for (std::uint64_t i = 0; i < count; ++i) added += registry->add(block(3 * i), i + 1);
  CHECK(added == count);
  CHECK(registry->size_of(block(1)) == 0);
  CHECK_FALSE(registry->remove(block(1)));
  CHECK_FALSE(registry->may_contain(static_cast<char*>(block(0)) + 16));
  // Every third first, so that records leave from the head, the middle and the end of chains.
  for (std::uint64_t start = 0; start < 3; ++start) {
    for (std::uint64_t i = start; i < count; i += 3) {
      found += registry->may_contain(block(3 * i)) && registry->size_of(block(3 * i)) == i + 1;
      removed += registry->remove(block(3 * i)) && !registry->remove(block(3 * i));
    }
  }
  for (std::uint64_t i = 0; i < count; ++i) left += registry->may_contain(block(3 * i));
  CHECK(found == count);
  CHECK(removed == count);
  CHECK(left == 0);
}

TEST_CASE("host error numbers become those of macOS") {
  struct Row {
    std::uint32_t host;
    std::int32_t darwin;
  };
  for (const Row row : {Row{ERROR_PATH_NOT_FOUND, 2}, Row{ERROR_SHARING_VIOLATION, 13}, Row{ERROR_DIR_NOT_EMPTY, 66},
                        Row{ERROR_FILENAME_EXCED_RANGE, 63}, Row{ERROR_DIRECTORY, 20}, Row{0, 5}, Row{99'999, 5}}) {
    CHECK(errno_from_win32(row.host) == row.darwin);
  }
  for (const Row row : {Row{0, 0}, Row{ENOENT, 2}, Row{EAGAIN, 35}, Row{ENAMETOOLONG, 63}, Row{ENOSYS, 78},
                        Row{ENOTEMPTY, 66}, Row{EDOM, 5}, Row{99'999, 5}}) {
    CHECK(errno_from_crt(static_cast<int>(row.host)) == row.darwin);
  }
}
