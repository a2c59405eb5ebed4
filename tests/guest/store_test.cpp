// A process of the game is killed at random moments while store_guest.cpp writes, and started again: all that it told
// to be kept has to be there.
#include <doctest/doctest.h>

#include <random>

#include "support/host_program.h"
#include "told_process.h"

using namespace vlm::test;

HOST_SUITE(store)

TEST_CASE("a store that is killed at any moment has kept all that it told") {
  for (const wchar_t* name : {L"store.tmp\\log", L"store.tmp\\new"}) DeleteFileW(name);
  std::mt19937 random(22);
  unsigned long long kept = 0, last = 0;
  int all_torn = 0, torn = 0;
  for (int round = 0; round < 60; ++round) {
    const std::string told = run_and_kill(L"store_guest", L"write_until_killed", "opened", random() % 100).told;
    CAPTURE(told);
    REQUIRE_EQ(std::sscanf(told.c_str(), "opened %llu %d", &last, &torn), 2);
    CHECK_FALSE(told.contains("broken"));
    CHECK_GE(last, kept);
    kept = last;
    if (std::sscanf(last_line(told, "kept").c_str(), "kept %llu", &last) == 1) kept = last;
    all_torn += torn;
  }
  CHECK_GT(all_torn, 0);  // the kills hit what they were aimed at
}
