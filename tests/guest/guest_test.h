// What a guest test file needs: it is macOS code, so there is no test framework and no C library header for it.
//
//   GUEST_TEST(strings_compare) { CHECK(strcmp("a", "b") < 0); }
//
// Include it in one file per image; a second file of the image defines GUEST_TEST_NO_MAIN first.
#pragma once

using int8 = signed char;
using uint8 = unsigned char;
using int32 = int;
using uint32 = unsigned int;
using int64 = long;
using uint64 = unsigned long;
static_assert(sizeof(int64) == 8 && sizeof(void*) == 8, "macOS x86-64 is LP64");

namespace guest_test {

using Report = void (*)(const char* file, int64 line, const char* what);

inline Report report = nullptr;
inline int64 checks = 0;

struct Test {
  const char* name;
  void (*run)();
  Test* next = nullptr;

  Test(const char* name, void (*run)()) : name(name), run(run) { *last = this, last = &next; }
  static inline Test *first = nullptr, **last = &first;
};

inline void check(bool passed, const char* file, int64 line, const char* what) {
  ++checks;
  if (!passed) report(file, line, what);
}

}  // namespace guest_test

#define CHECK(condition) guest_test::check(!!(condition), __FILE_NAME__, __LINE__, #condition)

// Registered by static initializers: the tests also prove that those run, in order.
#define GUEST_TEST(name)                                \
  static void name();                                   \
  static guest_test::Test register_##name(#name, name); \
  static void name()

#ifndef GUEST_TEST_NO_MAIN
extern "C" {
/// The driver starts the library with this export; 0 keeps the steps after a successful init from running.
int il2cpp_init(const char*) { return 0; }

const char* running_test = "none";

int64 run_guest_tests(guest_test::Report report) {
  guest_test::report = report;
  for (const auto* test = guest_test::Test::first; test; test = test->next) {
    running_test = test->name;
    test->run();
  }
  return guest_test::checks;
}
}
#endif
