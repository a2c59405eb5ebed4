// What the sample mod has done so far: exported as `sample_mod_counts`, for whoever wants to know.
#pragma once

#include <cstdint>

struct SampleModCounts {
  std::int32_t ticks;         // calls of the mod's entry
  std::int32_t descriptions;  // calls of Game.Describe that the mod has seen
  std::int32_t scores;        // calls of scoreboard_report that the mod has seen
};
