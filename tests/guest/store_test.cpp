// A process of the game is killed at random moments while store_guest.cpp writes, and started again: all that it told
// to be kept has to be there.
#define DOCTEST_CONFIG_NO_MULTITHREADING
#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#include <doctest/doctest.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

#include "told_process.h"

using namespace vlm::test;

TEST_CASE("a store that is killed at any moment has kept all that it told") {
  constexpr wchar_t log_name[] = L"store.tmp\\log", new_name[] = L"store.tmp\\new";
  DeleteFileW(log_name);
  DeleteFileW(new_name);

  std::mt19937 random(22);
  std::uint64_t kept = 0;
  int torn = 0, unfinished = 0;
  const auto check_told = [&](const std::string& told) {
    CHECK_EQ(told.find("broken"), std::string::npos);
    unsigned long long last = 0;
    int was_torn = 0, was_unfinished = 0;
    if (std::sscanf(last_line(told, "opened").c_str(), "opened %llu %d %d", &last, &was_torn, &was_unfinished) == 3) {
      CHECK_GE(last, kept);
      kept = last;
      torn += was_torn;
      unfinished += was_unfinished;
    }
    if (std::sscanf(last_line(told, "kept").c_str(), "kept %llu", &last) == 1) kept = last;
  };
  for (int round = 0; round < 60; ++round) {
    CAPTURE(round);
    const ToldProcess store = run_and_kill(L"store_guest", L"write_until_killed", "started\n", random() % 100);
    CAPTURE(store.told);
    REQUIRE(store.told.starts_with("started\n"));
    CHECK_EQ(store.exit_code, ToldProcess::killed);
    check_told(store.told);
  }
  const ToldProcess store = run_and_kill(L"store_guest", L"open_and_check", "opened", 30'000);
  CHECK_EQ(store.exit_code, 0);
  REQUIRE(!last_line(store.told, "opened").empty());
  check_told(store.told);

  // The kills hit what they were aimed at.
  MESSAGE(kept << " records, " << torn << " torn, " << unfinished << " files not finished");
  CHECK_GT(torn, 0);
  CHECK_GT(unfinished, 0);
  DeleteFileW(log_name);
  CHECK(RemoveDirectoryW(L"store.tmp"));
}
