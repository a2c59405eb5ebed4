// Throwing and catching as compiled macOS code does it: what handlers receive, what is destroyed, what is crossed.
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "darwin_threads.h"

/// Set by the driver: a Windows function that calls its first argument, through a stub, with the second.
extern "C" int64 (*call_on_windows)(int64 (*function)(int64), int64 argument);
int64 (*call_on_windows)(int64 (*function)(int64), int64 argument) = nullptr;

/// A probe, which ends the game.
extern "C" void rethrow_null_pointer() { std::rethrow_exception(nullptr); }

namespace {

int alive = 0;      // Tracked objects
int destroyed = 0;  // since the last look

struct Tracked {
  explicit Tracked(int value = 0) : value(value), self(this) { ++alive; }
  Tracked(const Tracked& other) : value(other.value), self(this) { ++alive; }
  ~Tracked() {
    --alive;
    ++destroyed;
    CHECK(self == this);  // the object that was constructed
  }
  int value;
  Tracked* self;
};

template <int N>
struct Base {
  virtual ~Base() = default;
  int number = N;
};
using First = Base<1>;
using Second = Base<2>;
struct Hidden {};
struct Derived : First, Second, private Hidden {
  Tracked tracked{4};
};
struct Further : Derived {
  int further = 5;
};
struct Virtual : virtual Second {};
struct Failure : std::exception {};

Derived derived;
Further further;
constexpr int lasting = 2;  // Tracked objects that are always there: those in these two

/// A constructor that throws: its members are destroyed, the object is not.
struct Half {
  Tracked member, array[3];
  [[gnu::noinline]] Half() { throw 42; }
  ~Half() { CHECK(false); }
};

/// Which of many clauses takes what `function` throws.
template <class Function>
[[gnu::noinline]] int taken_by(Function function) {
  try {
    asm volatile("" ::: "memory");  // keeps the compiler from seeing that it throws, and what
    function();
    asm volatile("" ::: "memory");
  } catch (int value) {
    return value;
  } catch (const char* text) {
    return text[0];
  } catch (Tracked& thrown) {
    return 20 + thrown.value;
  } catch (Further* object) {
    return object->further == 5 ? 12 : -1;
  } catch (Second* object) {
    return object == nullptr ? 13 : object->number == 2 ? 14 : -1;
  } catch (Second& object) {
    return object.number == 2 ? 15 : -1;
  } catch (Hidden&) {
    return -1;
  } catch (const std::logic_error&) {
    return 17;
  } catch (const std::exception&) {
    return 19;
  } catch (...) {
    return 16;
  }
  return 0;
}

/// Runs while the image is being initialized.
const int caught_by_initializer = taken_by([] { throw 40; });

GUEST_TEST(a_clause_takes_what_its_type_says) {
  CHECK(caught_by_initializer == 40);
  destroyed = 0;
  static constexpr struct {
    int clause;
    void (*function)();
  } rows[] = {
      {0, [] {}},
      {7, [] { throw 7; }},
      {'t', [] { throw "text"; }},
      {12, [] { throw &further; }},
      {14, [] { throw &derived; }},
      {13, [] { throw static_cast<Derived*>(nullptr); }},
      {15, [] { throw Further(); }},
      {-1, [] { throw Hidden(); }},
      {16, [] { throw 2.0; }},
      {16, [] { throw Virtual(); }},  // no clause for a virtual base takes it
      {42, [] { Half half; }},
      // Types of the C++ library are imports that stand for themselves alone, yet their bases are known.
      {17, [] { throw std::out_of_range("position"); }},
      {19, [] { throw std::bad_array_new_length(); }},
      {19, [] { throw std::bad_cast(); }},
      {19, [] { throw Failure(); }},
  };
  for (const auto& row : rows) CHECK(taken_by(row.function) == row.clause);
  CHECK(destroyed == 5 && alive == lasting);  // of Further and of Half
}

[[gnu::noinline]] void descend(int depth, int value) {
  Tracked here(depth);
  asm volatile("" ::"r"(&here) : "memory");
  if (depth == 0) throw Tracked(value);
  descend(depth - 1, value);
  asm volatile("" ::: "memory");
}

GUEST_TEST(every_frame_between_is_cleaned_up_once) {
  for (int depth = 0; depth < 1000; depth = depth * 9 + 1) {
    destroyed = 0;
    try {
      descend(depth, depth + 5);
    } catch (const Tracked& thrown) {
      CHECK(thrown.value == depth + 5 && destroyed == depth + 1 && alive == lasting + 1);
    }
    CHECK(destroyed == depth + 2 && alive == lasting);
  }
}

[[gnu::noinline]] int nested(int level) {
  try {
    if (level == 0) throw Tracked(0);
    return nested(level - 1);
  } catch (Tracked& outer) {
    try {
      throw Tracked(outer.value + 1);
    } catch (Tracked& inner) {
      if (level == 3) return inner.value * 10 + outer.value;
      throw;
    }
  }
}

struct Catches {
  ~Catches() {
    CHECK(taken_by([] { throw 1; }) == 1);
  }
};

GUEST_TEST(exceptions_nest) {
  const auto catch_in_cleanup = [] {
    Catches during_cleanup;
    asm volatile("" ::"r"(&during_cleanup) : "memory");
    throw Tracked(9);
  };
  CHECK(nested(3) == 43 && taken_by(catch_in_cleanup) == 29 && alive == lasting);
}

std::exception_ptr kept(int value) {
  try {
    throw Tracked(value);
  } catch (...) {
    return std::current_exception();
  }
}

int thrown_again(std::exception_ptr pointer) {
  try {
    std::rethrow_exception(pointer);
  } catch (Tracked& thrown) {
    return std::current_exception() == pointer ? thrown.value : -1;
  }
}

GUEST_TEST(an_exception_ptr_keeps_its_exception) {
  CHECK(std::current_exception() == nullptr);
  {
    std::exception_ptr many[100];
    for (int i = 0; i < 100; ++i) many[i] = kept(i);
    for (int i = 0; i < 100; ++i) CHECK(thrown_again(many[i]) == i);
    std::exception_ptr copy(many[6]), assigned = kept(700);
    assigned = copy;
    assigned = *&assigned;
    CHECK(alive == lasting + 100 && thrown_again(many[6]) == 6 && thrown_again(assigned) == 6);
  }
  CHECK(std::current_exception() == nullptr && alive == lasting);
}

int compare_and_throw(const void*, const void*) { throw Tracked(5); }

int64 descend_on_windows(int64 depth) {
  Tracked here(static_cast<int>(depth));
  if (depth == 0) throw Tracked(50);
  return call_on_windows(descend_on_windows, depth - 1) + here.value;
}

GUEST_TEST(exceptions_cross_windows_code) {
  int numbers[] = {5, 3, 8, 1};
  destroyed = 0;
  CHECK(taken_by([&] { qsort(numbers, 4, sizeof *numbers, compare_and_throw); }) == 25);
  CHECK(taken_by([&] { bsearch(numbers, numbers, 1, sizeof *numbers, compare_and_throw); }) == 25);
  CHECK(taken_by([] { descend_on_windows(1); }) == 70 && taken_by([] { descend_on_windows(20); }) == 70);
  CHECK(destroyed == 4 + 2 + 21 && alive == lasting);
}

GUEST_TEST(threads_throw_at_the_same_time) {
  const std::exception_ptr shared = kept(77);
  int64 right = 0;
  run_on_threads(8, [&](int64) {
    for (int i = 0; i < 5000; ++i) {
      const bool both = taken_by([=] { throw i; }) == i && thrown_again(shared) == 77;
      __atomic_fetch_add(&right, both, __ATOMIC_RELAXED);
    }
  });
  CHECK(right == 8 * 5000);
}

extern "C" {
void* __cxa_allocate_exception(uint64 size) noexcept;
[[noreturn]] void __cxa_throw(void* thrown, const void* type, void (*destroy)(void*));
extern char function_types __asm("__ZTVN10__cxxabiv120__function_type_infoE");
extern char fundamental_types __asm("__ZTVN10__cxxabiv123__fundamental_type_infoE");
}
// What the compiler takes from the library for types that have no class, and calls of a class that is the library's.
GUEST_TEST(types_without_a_class_are_thrown) {
  const char* volatile table = &function_types;  // the compiler would know the answer
  const char* const number_type[] = {&fundamental_types + 16, "i"};
  CHECK(taken_by([&] { __cxa_throw(__cxa_allocate_exception(4), number_type, nullptr); }) == 16);
  const std::exception base;
  CHECK(table != &fundamental_types && std::string(base.what()) == "std::exception");
}

}  // namespace
