// The game's progress, in the cloud store of the player's account: found again at the next start.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Counts the game that begins. Returns which one it is: 1 for the first ever.
int32_t progress_begin_game(void);

/// The best score of all games so far.
int32_t progress_best_score(void);

/// Keeps the score if it is the best.
void progress_take_score(int32_t score);

#ifdef __cplusplus
}
#endif
