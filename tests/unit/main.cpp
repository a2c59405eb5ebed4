// The unit tests' own entry. Every *_test.cpp of this folder is linked into this one Windows program.
#define DOCTEST_CONFIG_NO_MULTITHREADING  // this toolchain's standard library has no threads
#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#include <doctest/doctest.h>
