// Names of code addresses, for reports.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlm {

inline constexpr std::size_t symbol_text_size = 512;

/// Names a code address: "GameAssembly.dylib!_name+0x12", "GameAssembly.dylib+0x1234" where no symbol is below it, or
/// "module.dll+0x1234". False for an address that neither the game nor a Windows module holds.
bool symbolize_address(std::uint64_t address, char (&text)[symbol_text_size]);

/// The same for a return address: it is the function's that called, even when the call is its last instruction.
bool symbolize_return_address(std::uint64_t address, char (&text)[symbol_text_size]);

}  // namespace vlm
