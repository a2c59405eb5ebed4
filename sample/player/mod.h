// A mod beside the player: how one comes into the process, and what it has to have seen.
#pragma once

/// Loads SampleMod.dll when it lies beside the player.
void load_mod();

/// The mod was called at its pace, and its hooks for everything that the game has done in so many frames.
void check_mod(int frames, int score);
