// What game code cannot provoke or see: the registry of aligned blocks, the translation of host error numbers.
#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <windows.h>

#include <cerrno>
#include <cstdint>
#include <memory>

#include "posix/aligned_blocks.h"
#include "posix/error_numbers.h"

using namespace vlm;

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

TEST_CASE("a host error number that macOS has none for is an input or output error") {
  CHECK(errno_from_win32(ERROR_DIR_NOT_EMPTY) == 66);
  CHECK(errno_from_crt(EAGAIN) == 35);
  CHECK(errno_from_crt(0) == 0);
  for (const int unknown : {99'999, EDOM}) CHECK(errno_from_crt(unknown) == 5);
  for (const unsigned unknown : {99'999u, 0u}) CHECK(errno_from_win32(unknown) == 5);
}
