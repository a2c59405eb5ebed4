#include "mod.h"

#include <windows.h>

#include "../mod/mod.h"
#include "library.h"
#include "report.h"

static const SampleModCounts* counts;  // null without the mod

void load_mod() {
  const std::wstring path = player_directory() + L"SampleMod.dll";
  if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
    say("there is no mod");
    return;
  }
  const HMODULE mod = LoadLibraryW(path.c_str());
  if (mod == nullptr) fail(EXIT_NOT_STARTED, "cannot load SampleMod.dll (Windows error %lu)", GetLastError());
  counts = reinterpret_cast<const SampleModCounts*>(GetProcAddress(mod, "sample_mod_counts"));
  expect(counts != nullptr, "SampleMod.dll does not export sample_mod_counts");
  say("loaded SampleMod.dll");
}

void check_mod(int frames, int score) {
  if (counts == nullptr) return;
  // A frame lasts longer than the mod's 15 ms, but Windows may count time in steps as long as that.
  expect(counts->ticks >= frames / 2, "the mod was called %d times in %d frames", counts->ticks, frames);
  expect(counts->descriptions == 1, "the mod saw %d calls of Describe, expected 1", counts->descriptions);
  // The game reports a score of 0 when it starts, too.
  expect(counts->scores == score + 1, "the mod saw %d reports of scores, expected %d", counts->scores, score + 1);
  say("the mod ticked %d times; calls it saw: scoreboard_report %d, Describe %d", counts->ticks, counts->scores,
      counts->descriptions);
}
