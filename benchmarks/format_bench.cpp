// What formatting costs the game: snprintf of the real library called by a guest image, against the host's two called
// by Windows code (the C runtime's, and the one that this toolchain brings along, which "std" names).
//
//   format_bench IMAGE
#include <cstdint>
#include <cstdio>
#include <string>

#include "report.h"
#include "support/game.h"

using namespace vlm::bench;
using namespace vlm::test;

namespace {

using Loop = std::int64_t(char* into, std::uint64_t size, std::int64_t calls);

constexpr std::int64_t calls = 20'000;

template <auto Print>
std::int64_t words(char* into, std::uint64_t size, std::int64_t count) {
  std::int64_t sum = 0;
  for (std::int64_t i = 0; i < count; ++i) sum += Print(into, size, "%d %s", static_cast<int>(i), "velmora");
  return sum;
}

template <auto Print>
std::int64_t fraction(char* into, std::uint64_t size, std::int64_t count) {
  std::int64_t sum = 0;
  for (std::int64_t i = 0; i < count; ++i) sum += Print(into, size, "%.3f", static_cast<double>(i) * 0.7);
  return sum;
}

constexpr auto std_print = [](char* into, std::size_t size, const char* format, auto... values) {
  return std::snprintf(into, size, format, values...);
};
constexpr auto runtime_print = [](char* into, std::size_t size, const char* format, auto... values) {
  return _snprintf(into, size, format, values...);
};

}  // namespace

int main(int, char** arguments) {
  load_library(arguments[1]);
  start_game();
  const auto guest_loop = [](const char* name) {
    return game_function<std::int64_t, char*, std::uint64_t, std::int64_t>(game_symbol(name));
  };
  Loop* const guest_words = guest_loop("format_words");
  Loop* const guest_fraction = guest_loop("format_fraction");

  const struct {
    const char* name;
    Loop* peer;
    Loop* ours;
    const char* goal;
  } rows[] = {
      {"_snprintf \"%d %s\", peer: C runtime", words<runtime_print>, guest_words, "1.2"},
      {"_snprintf \"%d %s\", peer: std", words<std_print>, guest_words, "1.2"},
      {"_snprintf \"%.3f\", peer: C runtime", fraction<runtime_print>, guest_fraction, "0.6"},
      {"_snprintf \"%.3f\", peer: std", fraction<std_print>, guest_fraction, "0.6"},
  };
  for (const auto& row : rows) {
    char theirs[64] = "", text[64] = "";
    if (row.peer(theirs, sizeof theirs, 1000) != row.ours(text, sizeof text, 1000) || std::string(theirs) != text) {
      std::printf("%s: the texts differ: %s, %s\n", row.name, theirs, text);
      return 1;
    }
    const auto time =
        compare(101, 1, [&] { row.peer(theirs, sizeof theirs, calls); }, [&] { row.ours(text, sizeof text, calls); });
    print_row(row.name, "ns", time.peer / calls, time.ours / calls, row.goal);
  }
  leave(0);
}
