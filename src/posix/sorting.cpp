// Sorting and searching with a comparison that is game code. It may leave by a jump or an exception, and is called
// with nothing held.
//
// An array is sorted in place: at each comparison it holds every element once, so one that leaves loses none. Whatever
// the comparisons answer, their number is bounded by n log n, and nothing outside the array is touched:
//   quicksort       parts the elements into those below, at and above a pivot
//   insertion sort  where few are left
//   heapsort        where too many parts came out uneven
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {
namespace {

using Compare = SYSV std::int32_t(const void*, const void*);

/// Elements move word by word through general registers, where a collector that stops the thread looks for pointers.
template <class Word>
class Sorter {
 public:
  Sorter(std::uint64_t size, Compare* compare) : size_(size), compare_(compare) {}

  /// Sorts `count` elements; after `splits` partitions below each other by heapsort.
  void sort(std::byte* first, std::uint64_t count, int splits) const {
    while (count > insertion_limit) {
      if (splits-- == 0) return heap_sort(first, count);
      const auto [below, above] = partition(first, count);
      std::byte* const first_above = first + (count - above) * size_;
      // The shorter part first: the stack grows by the logarithm of the count.
      if (below < above) {
        sort(first, below, splits);
        first = first_above;
      } else {
        sort(first_above, above, splits);
      }
      count = std::max(below, above);
    }
    insertion_sort(first, count);
  }

 private:
  static constexpr std::uint64_t insertion_limit = 8;
  static constexpr std::uint64_t ninther_limit = 48;

  static Word load(const std::byte* place) {
    Word word;
    std::memcpy(&word, place, sizeof word);
    return word;
  }
  static void store(std::byte* place, Word word) { std::memcpy(place, &word, sizeof word); }

  void swap(std::byte* a, std::byte* b) const { swap_bytes(a, b, size_); }

  static void swap_bytes(std::byte* a, std::byte* b, std::uint64_t size) {
#pragma clang loop vectorize(disable) unroll(disable)
    for (std::uint64_t i = 0; i < size; i += sizeof(Word)) {
      const Word word = load(a + i);
      store(a + i, load(b + i));
      store(b + i, word);
    }
  }

  std::byte* median(std::byte* a, std::byte* b, std::byte* c) const {
    if (compare_(a, b) < 0) return compare_(b, c) < 0 ? b : compare_(a, c) < 0 ? c : a;
    return compare_(b, c) > 0 ? b : compare_(a, c) < 0 ? a : c;
  }

  std::byte* choose_pivot(std::byte* first, std::uint64_t count) const {
    std::byte* low = first;
    std::byte* middle = first + count / 2 * size_;
    std::byte* high = first + (count - 1) * size_;
    if (count > ninther_limit) {
      const std::uint64_t step = count / 8 * size_;
      low = median(low, low + step, low + 2 * step);
      middle = median(middle - step, middle, middle + step);
      high = median(high - 2 * step, high - step, high);
    }
    return median(low, middle, high);
  }

  struct Parts {
    std::uint64_t below, above;
  };

  /// Moves the elements below a pivot to the front and those above it to the end.
  ///
  ///   | pivot, equal | below | not seen | above | equal |      while it looks at them
  ///   first          e       b        ..a       g              a is the last one not seen, g that before the equal
  ///   ones
  Parts partition(std::byte* first, std::uint64_t count) const {
    std::byte* const end = first + count * size_;
    swap(first, choose_pivot(first, count));
    std::byte *equal = first + size_, *below = equal;
    std::byte *above = end - size_, *greater = above;
    for (;; below += size_, above -= size_) {
      for (; below <= above; below += size_) {
        const std::int32_t order = compare_(below, first);
        if (order > 0) break;
        if (order == 0) swap(equal, below), equal += size_;
      }
      for (; below <= above; above -= size_) {
        const std::int32_t order = compare_(above, first);
        if (order < 0) break;
        if (order == 0) swap(above, greater), greater -= size_;
      }
      if (below > above) break;
      swap(below, above);
    }
    // The equal ones go between the parts.
    const auto bytes = [](const std::byte* from, const std::byte* to) { return static_cast<std::uint64_t>(to - from); };
    const std::uint64_t lesser = bytes(equal, below), larger = bytes(above, greater);
    const std::uint64_t front = std::min(bytes(first, equal), lesser);
    const std::uint64_t back = std::min(bytes(greater, end) - size_, larger);
    swap_bytes(first, below - front, front);
    swap_bytes(below, end - back, back);
    return {lesser / size_, larger / size_};
  }

  void insertion_sort(std::byte* first, std::uint64_t count) const {
    const std::byte* const end = first + count * size_;
    for (std::byte* next = first + size_; next < end; next += size_) {
      std::byte* place = next;
      while (place > first && compare_(place - size_, next) > 0) place -= size_;
      if (place != next) move_back(next, place);
    }
  }

  /// Puts the element at `from` to `place` before it, and those between one further.
  void move_back(std::byte* from, std::byte* place) const {
#pragma clang loop vectorize(disable) unroll(disable)
    for (std::uint64_t i = 0; i < size_; i += sizeof(Word)) {
      const Word word = load(from + i);
      for (std::byte* to = from; to != place; to -= size_) store(to + i, load(to - size_ + i));
      store(place + i, word);
    }
  }

  void heap_sort(std::byte* first, std::uint64_t count) const {
    for (std::uint64_t root = count / 2; root-- > 0;) sift_down(first, root, count);
    while (--count > 0) {
      swap(first, first + count * size_);
      sift_down(first, 0, count);
    }
  }

  void sift_down(std::byte* first, std::uint64_t root, std::uint64_t count) const {
    for (std::uint64_t child; (child = 2 * root + 1) < count; root = child) {
      std::byte* larger = first + child * size_;
      if (child + 1 < count && compare_(larger, larger + size_) < 0) ++child, larger += size_;
      if (compare_(first + root * size_, larger) >= 0) return;
      swap(first + root * size_, larger);
    }
  }

  std::uint64_t size_;  // of an element, a multiple of a word's
  Compare* compare_;
};

SYSV void qsort_(std::byte* base, std::uint64_t count, std::uint64_t size, Compare* compare) {
  if (count < 2 || size == 0) return;
  const int splits = 2 * static_cast<int>(std::bit_width(count));
  if (size % 8 == 0) return Sorter<std::uint64_t>(size, compare).sort(base, count, splits);
  if (size % 4 == 0) return Sorter<std::uint32_t>(size, compare).sort(base, count, splits);
  Sorter<std::uint8_t>(size, compare).sort(base, count, splits);
}

SYSV const void* bsearch_(const void* key, const std::byte* base, std::uint64_t count, std::uint64_t size,
                          Compare* compare) {
  std::uint64_t low = 0;
  std::uint64_t high = count;
  while (low < high) {
    const std::uint64_t middle = low + (high - low) / 2;
    const std::byte* const element = base + middle * size;
    const std::int32_t order = compare(key, element);
    if (order == 0) return element;
    if (order < 0) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return nullptr;
}

}  // namespace

const ShimEntry sorting_rows[] = {{"_qsort", shim(qsort_)}, {"_bsearch", shim(bsearch_)}};
constinit const ShimRows sorting_shims = sorting_rows;

}  // namespace vlm
