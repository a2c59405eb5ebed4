// The game's 241 entry points, one typed slot per export, called with the System V convention.
#pragma once

#include <cstddef>

#include "host/il2cpp_types.h"

namespace vlm {

/// A slot holds the address of the game's function of the same name, or null when the image lacks it.
/// Filled once by resolve_forward_table() during start-up; read without a lock from then on.
struct ForwardTable {
#define IL2CPP_FORWARD(result, name, ...) result (__attribute__((sysv_abi)) *name)(__VA_ARGS__);
#define IL2CPP_WRAP(positions, result, name, ...) result (__attribute__((sysv_abi)) *name)(__VA_ARGS__);
#define IL2CPP_LOCAL(result, name, ...) result (__attribute__((sysv_abi)) *name)(__VA_ARGS__);
#include "host/il2cpp_exports.def"
#undef IL2CPP_FORWARD
#undef IL2CPP_WRAP
#undef IL2CPP_LOCAL
};

inline constexpr std::size_t export_count = 241;
static_assert(sizeof(ForwardTable) == export_count * sizeof(void*));

extern ForwardTable forward_table;

/// Looks every name up, with a leading underscore, among the exports of game_image; logs those that are missing.
void resolve_forward_table();

/// The end of a call to an export that the game image lacks.
[[noreturn]] void missing_export(const char* name);

/// The function in a slot; fatal when the image lacks it.
template <class Function>
inline Function game_function(Function slot, const char* name) {
  if (slot == nullptr) [[unlikely]] missing_export(name);
  return slot;
}

}  // namespace vlm

/// The game's own function behind an export, for a call from inside the library.
#define GAME(name) ::vlm::game_function(::vlm::forward_table.name, #name)
