// The once-only start of the game: the gate that every export passes, and the driver behind it.
//
//   loaded   --first export call-->   starting   --driver returns-->   ready
//            (static start-up done)   (others wait at the gate)        (for good)
#pragma once

#include <atomic>

#include "macho/image.h"

namespace vlm {

/// The game's image: null until start-up has loaded it, never cleared. Exports that do not pass the start-up gate
/// may read it on any thread at any time.
extern std::atomic<const MachImage*> game_image;

/// Set when the driver has returned; from then on the gate is one load and a branch that is never taken.
extern std::atomic<bool> start_completed;

/// Runs the driver, or waits for the thread that runs it.
void pass_start_gate();

/// Returns when start-up has completed. Every export that reaches the game calls this first.
inline void ensure_started() {
  if (!start_completed.load(std::memory_order_acquire)) [[unlikely]]
    pass_start_gate();
}

}  // namespace vlm
