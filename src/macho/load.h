// Loading an image: read, place, rebase and bind, protect; and running its initializers.
#pragma once

#include <cstdint>

#include "macho/image.h"
#include "support/locks.h"

namespace vlm {

/// Space behind an image for code that it must reach with 32-bit displacements.
struct HookArena {
  std::uint64_t image_base;
  std::uint64_t arena_start;  // base + extent rounded up to 64 KiB
  std::uint64_t image_size;   // the extent, not rounded
  std::uint64_t used;         // bytes handed out so far, a multiple of 4096
};

inline constexpr int max_hook_arenas = 32;
inline constexpr std::uint64_t hook_arena_size = 0x1000000;

extern HookArena hook_arenas[max_hook_arenas];  // entries are written by macho_load() during start-up
extern int hook_arena_count;                    // written by macho_load() during start-up
extern SrwLock hook_arena_lock;                 // guards the `used` fields; a leaf

/// What the loader leaves to its caller.
struct LoadHooks {
  // Who answers the imports that no image exports; as in SymbolSources.
  const void* (*lookup_shim)(const char* library, const char* name);
  const void* (*make_missing_symbol)(const char* library, const char* name);
  /// Called when the image is bound and its text still writable.
  void (*before_protection)(const MachImage& image);
};

/// Loads the image at a UTF-8 path: in the image list, rebased, bound and protected when it returns.
/// Null after a logged reason when the file cannot be taken; other failures are fatal.
MachImage* macho_load(const char* path, const LoadHooks& hooks);

/// Calls the entries of every __mod_init_func section, in order, as dyld would with empty argument lists.
/// An entry outside the image's code is fatal.
void macho_run_initializers(const MachImage& image);

}  // namespace vlm
