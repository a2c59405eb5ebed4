// The heap, blocks of bytes, sorting and random bytes.
#include "guest_test.h"

extern "C" {
void* malloc(uint64);
void* calloc(uint64, uint64);
void* realloc(void*, uint64);
void free(void*);
int32 posix_memalign(void**, uint64, uint64);
void* memcpy(void*, const void*, uint64);
void* memmove(void*, const void*, uint64);
void* memmove_chk(void*, const void*, uint64, uint64) __asm("___memmove_chk");  // by its name it would be compiled away
void* memset(void*, int32, uint64);
void* memset_chk(void*, int32, uint64, uint64) __asm("___memset_chk");
void memset_pattern16(void*, const void*, uint64);
void* memchr(const void*, int32, uint64);
int32 memcmp(const void*, const void*, uint64);
int32* wmemchr(const int32*, int32, uint64);
void __bzero(void*, uint64);
using Compare = int32 (*)(const void*, const void*);
void qsort(void*, uint64, uint64, Compare);
void* bsearch(const void*, const void*, uint64, uint64, Compare);
void arc4random_buf(void*, uint64);
[[gnu::returns_twice]] int32 setjmp(void*);
[[noreturn]] void longjmp(void*, int32);
int32 pthread_create(void**, const void*, void* (*)(void*), void*);
}

namespace {

constexpr int32 darwin_enomem = 12;

template <class T>
T* block_of(uint64 count) {
  return static_cast<T*>(malloc(count * sizeof(T)));
}

bool is_aligned(const void* block, uint64 alignment) { return reinterpret_cast<uint64>(block) % alignment == 0; }

/// Numbers that look random and are the same every time.
struct Sequence {
  uint64 state = 1;
  uint32 next() { return static_cast<uint32>((state = state * 6364136223846793005 + 1442695040888963407) >> 33); }
};

}  // namespace

GUEST_TEST(a_request_of_nothing_gives_a_block) {
  void* a = malloc(0);
  void* b = malloc(0);
  CHECK(a != nullptr && b != nullptr && a != b);
  a = realloc(a, 0);
  CHECK(a != nullptr);
  free(a);
  free(b);
  free(nullptr);
  void* c = calloc(0, 8);
  void* d = calloc(8, 0);
  CHECK(c != nullptr && d != nullptr);
  free(c);
  free(d);
}

GUEST_TEST(calloc_clears_and_refuses_a_size_that_wraps) {
  auto* block = static_cast<uint8*>(calloc(3, 100));
  uint64 sum = 0;
  for (int i = 0; i < 300; ++i) sum += block[i];
  CHECK(sum == 0);
  free(block);
  CHECK(calloc(uint64{1} << 33, uint64{1} << 33) == nullptr);
}

GUEST_TEST(realloc_keeps_the_contents) {
  void* aligned[2];
  CHECK(posix_memalign(&aligned[0], 64, 64) == 0 && posix_memalign(&aligned[1], 4096, 64) == 0);
  void* const blocks[] = {malloc(64), realloc(nullptr, 64), aligned[0], aligned[1]};
  for (void* start : blocks) {
    auto* block = static_cast<uint64*>(start);
    for (uint64 i = 0; i < 8; ++i) block[i] = 8 * i;
    block = static_cast<uint64*>(realloc(block, 1 << 20));
    bool kept = true;
    for (uint64 i = 0; i < 8; ++i) kept = kept && block[i] == 8 * i;
    block = static_cast<uint64*>(realloc(block, 16));
    CHECK(kept && block[1] == 8);
    free(block);
  }
}

GUEST_TEST(aligned_blocks_are_freed_as_any_other) {
  static const uint64 alignments[] = {8, 16, 32, 64, 256, 4096, 65536};
  for (const uint64 alignment : alignments) {
    void* blocks[8];
    for (void*& block : blocks) {
      CHECK(posix_memalign(&block, alignment, 100) == 0);
      CHECK(is_aligned(block, alignment));
      memset(block, 0xAA, 100);
    }
    for (void* block : blocks) free(block);
    // A block that really went back to the heap has its place used again.
    bool used_again = false;
    for (int i = 0; i < 100; ++i) {
      void* again;
      if (posix_memalign(&again, alignment, 50'000) != 0) break;
      for (void* block : blocks) used_again = used_again || block == again;
      blocks[i % 8] = again;
      free(again);
    }
    CHECK(used_again);
  }
  void* block = &block;
  CHECK(posix_memalign(&block, 64, 0) == 0 && block != nullptr);
  free(block);
  static const uint64 too_large[] = {~uint64{0}, ~uint64{0} - 64, uint64{1} << 62};
  for (const uint64 size : too_large) {
    CHECK(posix_memalign(&block, 64, size) == darwin_enomem && block == nullptr);
    CHECK(posix_memalign(&block, 16, size) == darwin_enomem);
  }
  static const uint64 refused[] = {24, 100, uint64{1} << 63};
  for (const uint64 alignment : refused) {  // no power of two; no room
    CHECK(posix_memalign(&block, alignment, 8) == darwin_enomem);
  }
}

namespace {

constexpr uint64 shared_blocks = 20'000;
void* volatile passed[shared_blocks];
volatile uint64 freed[2];

/// Frees what the test's thread hands over: every second block for each of two threads.
void* free_passed(void* which) {
  const auto own = reinterpret_cast<uint64>(which);
  for (uint64 i = own; i < shared_blocks; i += 2) {
    void* block;
    while ((block = passed[i]) == nullptr) asm volatile("pause");
    free(block);
    freed[own] = freed[own] + 1;
  }
  return nullptr;
}

}  // namespace

GUEST_TEST(aligned_blocks_are_freed_by_other_threads) {
  void* thread;
  for (uint64 which = 0; which < 2; ++which) {
    CHECK(pthread_create(&thread, nullptr, free_passed, reinterpret_cast<void*>(which)) == 0);
  }
  for (uint64 i = 0; i < shared_blocks; ++i) {  // aligned and ordinary ones, mixed for either thread
    void* block = nullptr;
    if (i % 4 < 2) {
      if (posix_memalign(&block, 32, 48) != 0 || !is_aligned(block, 32)) break;
    } else {
      block = malloc(48);
    }
    passed[i] = block;
  }
  while (freed[0] + freed[1] < shared_blocks) asm volatile("pause");
  CHECK(freed[0] == freed[1]);
}

GUEST_TEST(copies_of_any_length_and_overlap) {
  // Every length around the changes of method, the target before, on and behind the source.
  static const int64 shifts[] = {-300, -17, -1, 0, 1, 5, 16, 33, 200};
  uint8 bytes[1200], expected[1200];
  for (uint64 size = 0; size <= 400; ++size) {
    for (const int64 shift : shifts) {
      for (uint64 i = 0; i < sizeof bytes; ++i) bytes[i] = expected[i] = static_cast<uint8>(i * 7 + i / 256);
      for (uint64 i = 0; i < size; ++i) expected[400 + shift + i] = static_cast<uint8>((400 + i) * 7 + (400 + i) / 256);
      void* const to = bytes + 400 + shift;
      const auto copy = size % 2 ? memcpy : memmove;  // macOS code may overlap with both
      if (copy(to, bytes + 400, size) != to || memcmp(bytes, expected, sizeof bytes) != 0) {
        CHECK(!"a copy went wrong");
        return;
      }
    }
  }
  CHECK(memmove_chk(bytes, "checked", 8, 8) == bytes && memcmp(bytes, "checked", 8) == 0);
}

GUEST_TEST(filling_and_finding_bytes) {
  char text[] = "0123456789";
  CHECK(memset(text, 'x' + 256, 4) == text && memcmp(text, "xxxx45", 6) == 0);
  CHECK(memset_chk(text + 8, 'y', 2, 2) == text + 8 && memcmp(text + 7, "7yy", 4) == 0);
  __bzero(text, 3);
  CHECK(text[0] == 0 && text[2] == 0 && text[3] == 'x');
  CHECK(memchr(text, 'y' + 256, 11) == text + 8);
  CHECK(memchr(text, 'y', 8) == nullptr);
  CHECK(memcmp("a\x80", "a\x7f", 2) > 0);

  char filled[42];
  memset(filled, '.', sizeof filled);
  memset_pattern16(filled + 1, "0123456789abcdef", 40);
  CHECK(memcmp(filled, ".0123456789abcdef0123456789abcdef01234567.", 42) == 0);

  const int32 wide[] = {0x10041, 0x41, -1, 0x41};
  CHECK(wmemchr(wide, -1, 4) == wide + 2);
  CHECK(wmemchr(wide, 0x41, 4) == wide + 1);
  CHECK(wmemchr(wide, -1, 2) == nullptr);
}

namespace {

uint64 comparisons;
uint64 element_size;

/// Compares the first bytes as unsigned numbers; reads the other bytes so that a torn element shows.
int32 compare_elements(const void* a, const void* b) {
  ++comparisons;
  return memcmp(a, b, element_size < 4 ? element_size : 4);
}

int64 jump_buffer[37];
int32 compare_and_leave(const void*, const void*) { longjmp(jump_buffer, 7); }

}  // namespace

GUEST_TEST(sorting_moves_whole_elements) {
  static const uint64 sizes[] = {1, 2, 4, 7, 8, 12, 100};
  for (const uint64 size : sizes) {
    constexpr uint64 count = 500;
    element_size = size;
    uint8* const elements = block_of<uint8>(count * size + 2);
    Sequence sequence;
    elements[0] = elements[count * size + 1] = 0xEE;
    for (uint64 i = 0; i < count; ++i) {
      uint8* const element = elements + 1 + i * size;
      for (uint64 j = 0; j < size; ++j) element[j] = static_cast<uint8>(sequence.next());
      // the rest of an element follows from its key
      for (uint64 j = 4; j < size; ++j) element[j] = static_cast<uint8>(element[0] + element[3] * j);
    }
    uint64 sum_before = 0, sum_after = 0;
    for (uint64 i = 0; i < count * size; ++i) sum_before += elements[1 + i];
    qsort(elements + 1, count, size, compare_elements);
    bool ordered = true, whole = true;
    for (uint64 i = 0; i < count; ++i) {
      const uint8* const element = elements + 1 + i * size;
      if (i > 0) ordered = ordered && compare_elements(element - size, element) <= 0;
      for (uint64 j = 4; j < size; ++j) whole = whole && element[j] == static_cast<uint8>(element[0] + element[3] * j);
    }
    for (uint64 i = 0; i < count * size; ++i) sum_after += elements[1 + i];
    CHECK(ordered && whole && sum_before == sum_after);
    CHECK(elements[0] == 0xEE && elements[count * size + 1] == 0xEE);
    free(elements);
  }
  comparisons = 0;
  qsort(nullptr, 0, 4, compare_elements);
  CHECK(comparisons == 0);
}

GUEST_TEST(a_comparison_may_leave_by_a_jump) {
  int32 numbers[] = {3, 1, 2};
  if (setjmp(jump_buffer) == 0) {
    qsort(numbers, 3, sizeof numbers[0], compare_and_leave);
    CHECK(!"the comparison returned");
  }
  element_size = 1;
  qsort(numbers, 3, sizeof numbers[0], compare_elements);
  CHECK(numbers[0] == 1 && numbers[1] == 2 && numbers[2] == 3);
}

GUEST_TEST(searching_halves) {
  const uint8 sorted[] = {2, 4, 4, 6, 8, 10, 250};
  element_size = 1;
  for (uint64 i = 0; i < sizeof sorted; ++i) {
    const auto* found = static_cast<const uint8*>(bsearch(&sorted[i], sorted, sizeof sorted, 1, compare_elements));
    CHECK(found != nullptr && *found == sorted[i]);
  }
  static const uint8 absent[] = {1, 5, 251};
  for (const uint8 missing : absent) {
    CHECK(bsearch(&missing, sorted, sizeof sorted, 1, compare_elements) == nullptr);
  }
  comparisons = 0;
  CHECK(bsearch(sorted, sorted, 0, 1, compare_elements) == nullptr && comparisons == 0);
}

GUEST_TEST(random_bytes_fill_exactly_the_buffer) {
  uint64 numbers[2][4] = {};
  arc4random_buf(numbers[0], 27);
  arc4random_buf(numbers[1], 27);
  CHECK(memcmp(numbers[0], numbers[1], 24) != 0);  // wrong once in 2^192
  CHECK(numbers[0][3] < 1 << 24);
  arc4random_buf(nullptr, 0);
}
