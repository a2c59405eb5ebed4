// The heap, blocks of bytes, sorting and random bytes.
#include "darwin_threads.h"
#include "sdk/darwin/setjmp.h"

extern "C" {
void* memmove_chk(void*, const void*, uint64, uint64) __asm("___memmove_chk");  // by its name it would be compiled away
void* memset_chk(void*, int32, uint64, uint64) __asm("___memset_chk");
void memset_pattern16(void*, const void*, uint64), __bzero(void*, uint64), arc4random_buf(void*, uint64);
int32* wmemchr(const int32*, int32, uint64);
}

GUEST_TEST(a_request_of_nothing_gives_a_block_and_one_that_wraps_none) {
  void* const blocks[] = {malloc(0), malloc(0), realloc(malloc(0), 0), calloc(0, 8), nullptr};
  CHECK(blocks[0] != blocks[1]);
  for (void* const& block : blocks) CHECK((block != nullptr) == (&block < blocks + 4)), free(block);
  auto* const zeros = static_cast<uint8*>(calloc(3, 100));
  CHECK(zeros[0] == 0 && memcmp(zeros, zeros + 1, 299) == 0 && calloc(1UL << 33, 1UL << 33) == nullptr);
  free(zeros);
}

GUEST_TEST(aligned_blocks_are_moved_and_freed_as_any_other) {
  static const uint64 alignments[] = {8, 32, 4096, 65536};
  void* block;
  for (const uint64 alignment : alignments) {
    CHECK(posix_memalign(&block, alignment, 100) == 0 && reinterpret_cast<uint64>(block) % alignment == 0);
    memset(block, 0xAA, 100);
    auto* const grown = static_cast<uint8*>(realloc(realloc(block, 1 << 20), 80));
    CHECK(grown[0] == 0xAA && memcmp(grown, grown + 1, 79) == 0);
    free(grown);
    // A block that really went back to the heap has its place used again.
    bool used_again = false;
    void* freed[8] = {};
    for (int i = 0; i < 100 && posix_memalign(&block, alignment, 50'000) == 0; ++i) {
      for (const void* other : freed) used_again = used_again || block == other;
      free(freed[i % 8] = block);
    }
    CHECK(used_again);
  }
  block = nullptr;
  static const uint64 refused[][2] = {{64, ~0UL}, {64, ~0UL - 64}, {16, ~0UL}, {24, 8}, {1UL << 63, 8}};
  for (const auto& [alignment, size] : refused) {
    CHECK(posix_memalign(&block, alignment, size) == ENOMEM && block == nullptr);
  }
  CHECK(posix_memalign(&block, 64, 0) == 0 && block != nullptr);
}

GUEST_TEST(aligned_blocks_are_freed_by_other_threads) {
  constexpr int64 count = 20'000;
  static void* passed[count];
  Crew crew(2, [&](int64 own) {  // every second block for each
    for (int64 i = own; i < count; i += 2) {
      void* block;
      while ((block = __atomic_load_n(&passed[i], __ATOMIC_ACQUIRE)) == nullptr) asm volatile("pause");
      free(block);
    }
  });
  for (int64 i = 0; i < count; ++i) {  // aligned and ordinary ones, mixed for either thread
    void* block = nullptr;
    CHECK(posix_memalign(&block, i % 4 < 2 ? 32 : 16, 48) == 0);
    __atomic_store_n(&passed[i], block, __ATOMIC_RELEASE);
  }
}

GUEST_TEST(filling_and_finding_as_only_macos_does) {
  char text[42];
  memset(text, '.', sizeof text);
  memset_pattern16(text + 1, "0123456789abcdef", 40);
  CHECK(memcmp(text, ".0123456789abcdef0123456789abcdef01234567.", 42) == 0);
  CHECK(memset_chk(text + 8, 'y' + 256, 2, 2) == text + 8 && memmove_chk(text, text + 5, 4, 4) == text);
  __bzero(text + 4, 2);
  CHECK(same(text, "456y") && same(text + 5, "") && memcmp(text + 6, "56yy9", 5) == 0);
  const int32 wide[] = {0x10041, 0x41, -1, 0x41};
  CHECK(wmemchr(wide, -1, 4) == wide + 2 && wmemchr(wide, 0x41, 4) == wide + 1 && wmemchr(wide, -1, 2) == nullptr);
}

namespace {

uint64 comparisons, leave_at;
jmp_buf jump_buffer;
int32 compare_and_leave(const void* a, const void* b) {
  if (comparisons++ == leave_at) longjmp(jump_buffer, 7);
  return *static_cast<const uint8*>(a) - *static_cast<const uint8*>(b);
}
int32 disagree(const void*, const void*) { return static_cast<int32>(comparisons++ % 3) - 1; }

}  // namespace

GUEST_TEST(sorting_is_fast_keeps_each_element_and_may_be_left_by_a_jump) {
  uint8 bytes[256];
  CHECK(bsearch(bytes, bytes, 0, 1, compare_and_leave) == nullptr);
  qsort(bytes, 0, 4, compare_and_leave);
  qsort(bytes, 1, 1, compare_and_leave);
  CHECK(comparisons == 0);
  for (const uint64 moment : (const uint64[]){0, 1000, ~0ul}) {  // an element is never elsewhere while two are compared
    for (int32 i = 0; i < 256; ++i) bytes[i] = static_cast<uint8>(i * 77);
    comparisons = 0;
    leave_at = moment;
    if (setjmp(jump_buffer) == 0) {
      qsort(bytes, sizeof bytes, 1, moment == ~0UL ? disagree : compare_and_leave);
      CHECK(moment == ~0UL);
    }
    bool seen[256] = {};
    for (const uint8 byte : bytes) CHECK(!seen[byte]), seen[byte] = true;
  }
  static uint8 many[50'000];  // sorted, all equal, an organ pipe
  for (int32 form = 0; form < 3; ++form) {
    for (int32 i = 0; i < 50'000; ++i)
      many[i] = form == 0 ? i / 200 : form == 1 ? 7 : (i < 25'000 ? i : 50'000 - i) / 100;
    comparisons = 0;
    qsort(many, sizeof many, 1, compare_and_leave);
    CHECK(comparisons < 50 * 50'000);  // 16 is the logarithm; quadratic: 25,000
  }
}

GUEST_TEST(random_bytes_fill_exactly_the_buffer) {
  uint64 numbers[2][4] = {};
  for (auto& each : numbers) arc4random_buf(each, 27);
  CHECK(memcmp(numbers[0], numbers[1], 24) != 0 && numbers[0][3] < 1 << 24);  // the first wrong once in 2^192
}
