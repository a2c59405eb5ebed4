// The game's entry points, one typed slot per export, called with the System V convention.
#pragma once

#include <cstddef>

#include "host/il2cpp_types.h"

namespace vlm {

/// A slot holds the address of the game's function of the same name, or null when the image lacks it.
/// Filled once by resolve_forward_table() during start-up; read without a lock from then on.
struct ForwardTable {
#define IL2CPP_FORWARD(result, name, parameters, arguments) result(__attribute__((sysv_abi)) * name) parameters;
#define IL2CPP_LOCAL(result, name, parameters) result(__attribute__((sysv_abi)) * name) parameters;
#include "host/il2cpp_exports.def"
};

inline constexpr std::size_t export_count = sizeof(ForwardTable) / sizeof(void*);

extern ForwardTable forward_table;

/// The same functions for the forwarders: all null until start-up is complete. So one load tells whether the game is
/// ready, and where its function is.
extern ForwardTable open_table;

/// Looks every name up, with a leading underscore, among the exports of the game's image; logs those that are missing.
void resolve_forward_table();

/// Lets the forwarders through. The last step of start-up.
void open_forward_table();

/// A forwarder whose slot of open_table is null comes here: waits at the start-up gate and returns the game's function.
/// Fatal when the image lacks it. Keeps all argument registers: a forwarder need not save them for the common case,
/// in which this is not called.
[[clang::preserve_most]] void* pass_gate_to(std::size_t slot);

/// The end of a call to an export that the game image lacks.
[[noreturn]] void missing_export(const char* name);

/// Where a forwarder goes: `slot` is its slot of open_table.
template <class Function>
inline Function open_function(const Function& slot) {
  const Function function = __atomic_load_n(&slot, __ATOMIC_ACQUIRE);
  if (function != nullptr) [[likely]]
    return function;
  const auto index = reinterpret_cast<const void* const*>(&slot) - reinterpret_cast<const void* const*>(&open_table);
  return reinterpret_cast<Function>(pass_gate_to(static_cast<std::size_t>(index)));
}

/// The function in a slot; fatal when the image lacks it.
template <class Function>
inline Function game_function(Function slot, const char* name) {
  if (slot == nullptr) [[unlikely]]
    missing_export(name);
  return slot;
}

}  // namespace vlm

/// The game's own function behind an export, for a call from inside the library.
#define GAME(name) ::vlm::game_function(::vlm::forward_table.name, #name)
