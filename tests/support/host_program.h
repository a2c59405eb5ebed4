// The host program: one Windows program of many, each of which loads the library in its own way.
#pragma once

namespace vlm::test {

/// A `main` under a name. Its first argument is the name.
struct HostProgram {
  const char* name;
  int (*run)(int argc, char** argv);
  HostProgram* next = first;

  HostProgram(const char* name, int (*run)(int, char**)) : name(name), run(run) { first = this; }

  static inline HostProgram* first = nullptr;
};

/// Runs the doctest cases of one suite; 0 when all passed.
int run_suite(const char* suite);

}  // namespace vlm::test

#define HOST_PROGRAM(name)                                              \
  static int name##_program(int argc, char** argv);                     \
  static vlm::test::HostProgram register_##name(#name, name##_program); \
  static int name##_program([[maybe_unused]] int argc, [[maybe_unused]] char** argv)

/// A program that is nothing but the doctest cases below this line.
#define HOST_SUITE(name)   \
  TEST_SUITE_BEGIN(#name); \
  HOST_PROGRAM(name) { return vlm::test::run_suite(#name); }
