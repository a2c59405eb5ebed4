// A crash of the game, and what the library reports about it.
#pragma once

#include "library.h"

/// Calls the game's function with a bug; prints the library's report about it. The exit code is the exception's.
[[noreturn]] void crash_the_game(Il2CppClass* game_class);
