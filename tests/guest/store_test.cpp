// A process of the game is killed at random moments while store_guest.cpp writes, and started again: all that it told
// to be kept has to be there.
#include <doctest/doctest.h>

#include <filesystem>
#include <random>

#include "support/host_program.h"
#include "told_process.h"

using namespace vlm::test;

HOST_SUITE(store)

TEST_CASE("a save that is replaced is the old one or the new one, whenever the game is killed") {
  std::filesystem::remove_all("store.tmp");
  std::mt19937 random(22);
  unsigned long long kept = 0, found = 0;
  int unfinished = 0;
  for (int round = 0; round < 60; ++round) {
    const std::string told = run_and_kill(L"store_guest", L"write_until_killed", "opened", random() % 100).told;
    CAPTURE(told);
    REQUIRE_EQ(std::sscanf(told.c_str(), "opened %llu", &found), 1);
    CHECK_FALSE(told.contains("broken"));
    CHECK((found == kept || found == kept + 1));
    kept = found;
    std::sscanf(last_line(told, "kept").c_str(), "kept %llu", &kept);
    unfinished += std::filesystem::exists("store.tmp/new");
  }
  CHECK_GT(unfinished, 0);  // the kills hit what they were aimed at
}
