// The code that stands in for one gs-relative instruction.
//
//   lea  rsp, [rsp-0x80]        over the red zone, where the interrupted function may keep its locals
//   push R                      a register that the instruction does not use
//   mov  R, imm64               slot: the loader fills in the address of the game-storage offset
//   mov  R, [R]                 the offset of the thread's slot in its environment block
//   mov  R, gs:[R]              the thread's game storage
//   lea  R, [R+base]            only when the instruction has both a base and an index register
//   ...                         the instruction without its gs prefix, R as its base register
//   pop  R
//   lea  rsp, [rsp+0x80]
//   jmp  [rip+0]
//   return slot                 the loader fills in the address behind the replaced instruction
//
// Nothing here but the instruction itself changes a flag.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "support/result.h"

namespace vlm::tessera {

inline constexpr std::uint16_t address_slot = 8;  // position of imm64 in the template

/// The template for an instruction, or why there can be none.
Result<std::vector<std::byte>> make_trampoline(std::span<const std::byte> instruction);

/// One line per instruction of a template, the slots named.
std::vector<std::string> disassemble_trampoline(std::span<const std::byte> code);

/// "65 48 8b 09"
std::string describe_bytes(std::span<const std::byte> bytes);

/// One instruction in Intel notation.
std::string disassemble(std::span<const std::byte> instruction);

}  // namespace vlm::tessera
