// The game's reflection functions: how the library learns what a method takes and returns.
#pragma once

#include "host/forward_table.h"
#include "host/game_symbols.h"
#include "macho/load.h"

namespace vlm {

/// Written once by resolve_reflection_api() during start-up, before the game runs; read-only afterwards.
struct ReflectionApi {
  const MachImage* image;  // null until resolved
#define X(name) decltype(ForwardTable::name) name;
  REFLECTION_FUNCTIONS(X)
#undef X
};
extern ReflectionApi reflection_api;

/// Looks the functions up among the image's exports. What is missing is null here: its first use is fatal.
void resolve_reflection_api(const MachImage& image);

}  // namespace vlm

/// A reflection function, for a call; fatal when the image lacks it.
#define REFLECT(name) ::vlm::game_function(::vlm::reflection_api.name, #name)
