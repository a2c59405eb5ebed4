// The interface for one mod: a Windows function that is called on the game's main thread at a steady pace.
#pragma once

#include <atomic>

#include "host/il2cpp_types.h"

namespace vlm {

/// Remembers the calling thread as the main thread when il2cpp_init's result is not 0.
void mark_main_thread(int init_result);

/// "Internal_ActiveSceneChanged" has been invoked. Written on the main thread.
extern std::atomic<bool> scene_seen;

/// Whether scene_hook() still looks at names.
inline bool awaits_scene() { return !scene_seen.load(std::memory_order_relaxed); }

/// Called after every managed invocation of the player that reported no exception; may call the mod.
///   method_name  of the invoked method, or null when it has none or awaits_scene() is false
///   returns      the result to give to the player: `result`, re-read from a handle when the mod was called
Il2CppObject* scene_hook(const char* method_name, Il2CppObject* result);

}  // namespace vlm
