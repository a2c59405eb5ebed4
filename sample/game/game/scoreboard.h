// The game's contact with Apple's score service, written in Objective-C.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Reports a score to the signed-in player's board. Returns how many boards took it: none while nobody is signed in.
int32_t scoreboard_report(int32_t score);

#ifdef __cplusplus
}
#endif
