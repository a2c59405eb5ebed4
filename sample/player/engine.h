// The engine's side of the internal calls: Windows functions that game code calls during a frame.
#pragma once

#include <cstdint>

/// Registers the internal calls and checks that the library gives the player's functions back.
void register_internal_calls();

/// The frame that UnityEngine.Time.frameCount tells of.
extern std::int32_t current_frame;

/// What the game drew and said since the last call.
struct FrameRecord {
  int boxes = 0;
  int lines = 0;
};
FrameRecord take_frame_record();
