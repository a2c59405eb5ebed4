// The code that stands in for a piece of the image with a gs-relative instruction in it.
//
//   leading instructions        neighbours in front of the access, moved to make room for the jump
//   lea  rsp, [rsp-0x80]        over the red zone, where the interrupted function may keep its locals
//   push R                      a register that the instruction does not use
//   mov  R, imm64               slot: the loader fills in the address of the game-storage offset
//   mov  R, [R]                 the offset of the thread's slot in its environment block
//   mov  R, gs:[R]              the thread's game storage
//   lea  R, [R+base]            only when the instruction has both a base and an index register
//   ...                         the instruction without its gs prefix, R as its base register
//   pop  R
//   lea  rsp, [rsp+0x80]
//   trailing instructions       neighbours behind the access
//   jmp  [rip+0]
//   return slot                 the loader fills in the address behind the replaced piece
//
// Between push and pop the code is "inside": rsp is lower by 0x88 there. A piece with several gs accesses goes inside
// once, at the first of them, and leaves behind the last.
//
// The trampoline's own place is not known when it is made, so whatever is relative to rip is made relative to the
// return slot's value: the target of a branch, or the address of an operand, is that value plus a constant. The loader
// may lengthen "mov R, gs:[R]" by 12 bytes; the return slot is therefore read from behind that instruction only, and
// a leading neighbour that needs it is moved inside.
//
// Nothing here but the moved instructions changes a flag.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "support/result.h"

namespace vlm::tessera {

struct Trampoline {
  std::vector<std::byte> code;
  std::uint16_t slot;  // position of imm64
};

/// The template for whole instructions that lie one behind the other, at least one of them a gs access; or why there
/// can be none. Behind a jump or return there may only be padding, which is dropped. That no branch leads into the
/// piece is the caller's business.
Result<Trampoline> make_trampoline(std::span<const std::byte> piece);

/// One line per instruction of a template, the slots named.
std::vector<std::string> disassemble_trampoline(const Trampoline& trampoline);

}  // namespace vlm::tessera
