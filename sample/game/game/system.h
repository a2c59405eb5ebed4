// What the game asks macOS itself, past the engine: a file of its own, the clock, the machine.
#pragma once

#include "runtime/text.h"

/// Counts a start of the game in the file starts.txt of the folder and returns its number: 1 for the first. 0 when the
/// count could not be saved.
int32_t count_start(const char* folder);

/// The local time, as "2026-03-01 18:30:05 +0100".
Text local_time();

/// Model, processors and memory.
Text machine();
