// The heap, blocks of bytes, sorting and random bytes.
#include "darwin_threads.h"
#include "sdk/darwin/setjmp.h"

extern "C" {
void* memmove_chk(void*, const void*, uint64, uint64) __asm("___memmove_chk");  // by its name it would be compiled away
void* memset_chk(void*, int32, uint64, uint64) __asm("___memset_chk");
void memset_pattern16(void*, const void*, uint64);
int32* wmemchr(const int32*, int32, uint64);
void __bzero(void*, uint64);
void arc4random_buf(void*, uint64);
}

namespace {

bool is_aligned(const void* block, uint64 alignment) { return reinterpret_cast<uint64>(block) % alignment == 0; }

/// Numbers that look random and are the same every time.
struct Sequence {
  uint64 state = 1;
  uint32 next() { return static_cast<uint32>((state = state * 6364136223846793005 + 1442695040888963407) >> 33); }
};

}  // namespace

GUEST_TEST(a_request_of_nothing_gives_a_block) {
  void* const blocks[] = {malloc(0), malloc(0), realloc(malloc(0), 0), calloc(0, 8), calloc(8, 0)};
  CHECK(blocks[0] != blocks[1]);
  for (void* block : blocks) {
    CHECK(block != nullptr);
    free(block);
  }
  free(nullptr);
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
    CHECK(posix_memalign(&block, 64, size) == ENOMEM && block == nullptr);
    CHECK(posix_memalign(&block, 16, size) == ENOMEM);
  }
  static const uint64 refused[] = {24, 100, uint64{1} << 63};
  for (const uint64 alignment : refused) {  // no power of two; no room
    CHECK(posix_memalign(&block, alignment, 8) == ENOMEM);
  }
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
    if (i % 4 < 2) {
      CHECK(posix_memalign(&block, 32, 48) == 0 && is_aligned(block, 32));
    } else {
      block = malloc(48);
    }
    __atomic_store_n(&passed[i], block, __ATOMIC_RELEASE);
  }
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

/// Decides on an order while it is asked, so that each pivot turns out among the smallest (M. D. McIlroy's adversary).
constexpr int32 adversary_count = 4000, undecided = adversary_count;
int32 order_of[adversary_count], decided, candidate;
int32 compare_against_the_sort(const void* a, const void* b) {
  const int32 left = *static_cast<const int32*>(a), right = *static_cast<const int32*>(b);
  ++comparisons;
  if (order_of[left] == undecided && order_of[right] == undecided) {
    order_of[left == candidate ? left : right] = decided++;
  }
  if (order_of[left] == undecided) candidate = left;
  if (order_of[right] == undecided) candidate = right;
  return order_of[left] - order_of[right];
}

jmp_buf jump_buffer;
uint64 leave_at;
int32 compare_and_leave(const void* a, const void* b) {
  if (comparisons == leave_at) longjmp(jump_buffer, 7);
  return compare_elements(a, b);
}

}  // namespace

GUEST_TEST(sorting_moves_whole_elements) {
  static const uint64 sizes[] = {1, 2, 4, 7, 8, 12, 100};
  for (const uint64 size : sizes) {
    constexpr uint64 count = 500;
    element_size = size;
    uint8* const elements = static_cast<uint8*>(malloc(count * size + 2));
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

GUEST_TEST(no_comparison_makes_sorting_slow) {
  static int32 numbers[adversary_count];
  for (int32 i = 0; i < adversary_count; ++i) numbers[i] = i, order_of[i] = undecided;
  comparisons = 0;
  qsort(numbers, adversary_count, sizeof numbers[0], compare_against_the_sort);
  CHECK(comparisons < 50 * adversary_count);  // 12 is the logarithm; quadratic: 1000
  bool ordered = true;
  for (int32 i = 1; i < adversary_count; ++i) ordered = ordered && order_of[numbers[i - 1]] <= order_of[numbers[i]];
  CHECK(ordered);
  // One that never agrees with itself still sees each element once.
  qsort(numbers, adversary_count, sizeof numbers[0],
        [](const void*, const void*) -> int32 { return comparisons++ % 3 - 1; });
  qsort(numbers, adversary_count, sizeof numbers[0],
        [](const void* a, const void* b) { return *static_cast<const int32*>(a) - *static_cast<const int32*>(b); });
  for (int32 i = 0; i < adversary_count; ++i) ordered = ordered && numbers[i] == i;
  CHECK(ordered);
}

GUEST_TEST(a_comparison_may_leave_by_a_jump) {
  static const uint64 moments[] = {0, 7, 100, 1000, 2000};  // an element is never elsewhere while two are compared
  element_size = 1;
  for (const uint64 moment : moments) {
    uint8 bytes[256];
    for (int32 i = 0; i < 256; ++i) bytes[i] = static_cast<uint8>(i * 77);
    comparisons = 0;
    leave_at = moment;
    if (setjmp(jump_buffer) == 0) {
      qsort(bytes, sizeof bytes, 1, compare_and_leave);
      CHECK(moment > 1000);  // it did not come so far
    }
    bool seen[256] = {};
    for (const uint8 byte : bytes) CHECK(!seen[byte]), seen[byte] = true;
    qsort(bytes, sizeof bytes, 1, compare_elements);
    for (int32 i = 0; i < 256; ++i) CHECK(bytes[i] == i);
  }
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
