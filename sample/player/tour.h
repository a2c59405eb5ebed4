// What a player does with the interface besides running frames, each with its check.
#pragma once

#include "library.h"

void tour_of_classes(Il2CppClass* game_class);
void tour_of_strings(Il2CppClass* game_class);
void tour_of_fields(Il2CppClass* game_class, Il2CppObject* game);
/// Vectors by value, through an internal call of the game.
void tour_of_vectors(Il2CppClass* game_class);
void tour_of_handles(Il2CppObject* game);
void tour_of_exceptions(Il2CppClass* game_class);
void tour_of_threads(Il2CppClass* game_class);
