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
  int torn = 0, unfinished = 0;
  for (int round = 0; round < 60; ++round) {
    const std::string told = run_and_kill(L"store_guest", L"write_until_killed", "opened", random() % 100).told;
    CAPTURE(told);
    int was_torn = 0, was_unfinished = 0;
    REQUIRE_EQ(std::sscanf(told.c_str(), "opened %llu %d %d", &last, &was_torn, &was_unfinished), 3);
    CHECK_FALSE(told.contains("broken"));
    CHECK_GE(last, kept);
    kept = last;
    if (std::sscanf(last_line(told, "kept").c_str(), "kept %llu", &last) == 1) kept = last;
    torn += was_torn;
    unfinished += was_unfinished;
  }
  // The kills hit what they were aimed at.
  MESSAGE(kept << " records, " << torn << " torn, " << unfinished << " files not finished");
  CHECK_GT(torn, 0);
}
