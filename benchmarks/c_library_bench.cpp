// The shims that game code calls most, against the host functions behind them: what it costs that a game calls them
// with its own convention. Both sides are called through a pointer, as an import slot is.
#include <windows.h>

#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "host/shim_catalogue.h"
#include "report.h"
#include "shim.h"

using namespace vlm::bench;

namespace {

constexpr int rounds = 301;

/// A function of the host's C runtime, and the shim of the same name.
template <class Result, class... A>
struct Function {
  using Host = Result (*)(A...);
  explicit Function(const std::string& name)
      : host(reinterpret_cast<Host>(
            reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("msvcrt.dll"), name.c_str())))),
        shim(("_" + name).c_str()) {}
  Host volatile host;  // no call is foreseen or left out
  Shim<Result(A...)> shim;
};

template <class Compare>
SYSV int compare_for_guest(const void* a, const void* b) {
  return Compare::compare(a, b);
}

/// Sorts numbers by a comparison of this kind, in either convention.
template <class Compare>
void row_of_sorting(const char* name, int rounds, std::uint32_t count, Compare, const char* goal) {
  const Function<void, void*, std::uint64_t, std::uint64_t, const void*> qsort_("qsort");
  std::vector<std::uint32_t> unsorted(count);
  Compare::fill(unsorted);
  std::vector<std::uint32_t> numbers;
  const auto sort = [&](const auto& function, auto compare) {
    numbers = unsorted;
    Compare::begin(count);
    function(numbers.data(), count, 4, reinterpret_cast<const void*>(compare));
  };
  const auto time = vlm::bench::compare(
      rounds, 1, [&] { sort(qsort_.host, Compare::compare); }, [&] { sort(qsort_.shim, compare_for_guest<Compare>); });
  print_row(name, "us", time.peer / 1e3, time.ours / 1e3, goal);
}

struct ByValue {
  static void begin(std::uint32_t) {}
  static int compare(const void* a, const void* b) {
    const auto left = *static_cast<const std::uint32_t*>(a), right = *static_cast<const std::uint32_t*>(b);
    return (left > right) - (left < right);
  }
};
struct Random : ByValue {
  static void fill(std::vector<std::uint32_t>& numbers) {
    std::mt19937 random(1);
    for (auto& number : numbers) number = static_cast<std::uint32_t>(random());
  }
};
struct InOrder : ByValue {
  static void fill(std::vector<std::uint32_t>& numbers) { std::iota(numbers.begin(), numbers.end(), 0); }
};

/// Decides on an order while it is asked, so that each pivot turns out among the smallest: M. D. McIlroy, "A Killer
/// Adversary for Quicksort".
struct Adversary : InOrder {
  static constexpr std::uint32_t undecided = ~0u;
  static inline std::vector<std::uint32_t> order;  // by number
  static inline std::uint32_t decided, candidate;
  static void begin(std::uint32_t count) {
    order.assign(count, undecided);
    decided = candidate = 0;
  }
  static int compare(const void* a, const void* b) {
    const auto left = *static_cast<const std::uint32_t*>(a), right = *static_cast<const std::uint32_t*>(b);
    if (order[left] == undecided && order[right] == undecided) order[left == candidate ? left : right] = decided++;
    if (order[left] == undecided) candidate = left;
    if (order[right] == undecided) candidate = right;
    return ByValue::compare(&order[left], &order[right]);
  }
};

}  // namespace

int main() {
  vlm::register_shim_families();

  const Function<void*, std::uint64_t> malloc_("malloc");
  const Function<void, void*> free_("free");
  const auto allocate = [&](const char* name, const char* goal) {
    const auto time =
        compare(rounds, 2'000, [&] { free_.host(malloc_.host(48)); }, [&] { free_.shim(malloc_.shim(48)); });
    print_row(name, "ns", time.peer, time.ours, goal);
  };
  allocate("malloc and free, 48 bytes", "1.05");
  const Shim<int(void**, std::uint64_t, std::uint64_t)> posix_memalign_("_posix_memalign");
  for (int i = 0; i < 10'000; ++i) {
    void* block;
    if (posix_memalign_(&block, 64, 48) != 0) return 1;
  }
  allocate("malloc and free, 48 bytes, 10000 aligned blocks alive", "1.5");
  // The same with many blocks alive, so that each free meets another address.
  static void* blocks[1'000];
  const auto many = [&](const auto& take, const auto& give) {
    for (void*& block : blocks) block = take(48);
    for (void* block : blocks) give(block);
  };
  const auto time =
      compare(rounds, 2, [&] { many(malloc_.host, free_.host); }, [&] { many(malloc_.shim, free_.shim); });
  print_row("the same, a thousand blocks in turn", "ns", time.peer / 1'000, time.ours / 1'000, "1.5");

  const Function<void*, void*, const void*, std::uint64_t> memcpy_("memcpy");
  const Function<void*, void*, const void*, std::uint64_t> memmove_("memmove");
  for (const std::size_t references : {20, 100, 1'000, 3'000}) {
    const auto list = std::make_unique<void*[]>(references + 1);
    void** const low = list.get();
    void** const high = low + 1;
    const auto row = [&](const char* what, void** to, void** from) {
      const std::size_t size = references * sizeof(void*);
      const auto time = compare(
          rounds, references > 500 ? 200 : 2'000, [&] { memmove_.host(to, from, size); },
          [&] { memmove_.shim(to, from, size); });
      const std::string name = "memmove, " + std::to_string(references) + " references one place " + what;
      print_row(name.c_str(), "ns", time.peer, time.ours, "1.1");
    };
    row("down", low, high);
    row("up", high, low);
  }
  const Function<std::uint64_t, const char*> strlen_("strlen");
  const Function<int, const char*, const char*> strcmp_("strcmp");
  for (const std::size_t size : {16, 256, 65'536}) {
    const std::string text(size, 'v');
    const std::string same = text;
    const auto to = std::make_unique<char[]>(size);
    const int calls = size > 1'000 ? 20 : 5'000;
    const auto row = [&](const char* function, auto peer, auto ours) {
      const auto time = compare(rounds, calls, peer, ours);
      print_row((function + std::string(", ") + std::to_string(size) + " bytes").c_str(), "ns", time.peer, time.ours,
                "1.1");
    };
    const char* const a = text.c_str();
    const char* const b = same.c_str();
    row("memcpy", [&] { memcpy_.host(to.get(), a, size); }, [&] { memcpy_.shim(to.get(), a, size); });
    row("strlen", [&] { strlen_.host(a); }, [&] { strlen_.shim(a); });
    row("strcmp", [&] { strcmp_.host(a, b); }, [&] { strcmp_.shim(a, b); });
  }
  row_of_sorting("qsort, 10000 random numbers", 101, 10'000, Random(), "1.1");
  row_of_sorting("qsort, 10000 numbers in order", 101, 10'000, InOrder(), "1.1");
  row_of_sorting("qsort, 10000 numbers, an adversary compares", 5, 10'000, Adversary(), "0.10");
}
