// x86-64 instructions as Tessera sees them: decoded by Zydis, asked what they use, encoded anew.
#pragma once

#include <Zydis/Zydis.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vlm::tessera {

inline constexpr ZydisMachineMode machine_mode = ZYDIS_MACHINE_MODE_LONG_64;

struct Decoded {
  ZydisDecodedInstruction instruction;
  ZydisDecodedOperand operands[ZYDIS_MAX_OPERAND_COUNT];

  std::size_t size() const { return instruction.length; }
  std::span<const ZydisDecodedOperand> all() const { return {operands, instruction.operand_count}; }
  std::span<const ZydisDecodedOperand> visible() const { return {operands, instruction.operand_count_visible}; }
};

/// The first instruction of `bytes`, or nothing when they do not begin with one.
std::optional<Decoded> decode(std::span<const std::byte> bytes);

/// True when executing the instruction depends on gs: it reads or writes memory through it, or handles gs itself. A
/// gs prefix alone says little: assemblers pad with it, and lea ignores it.
bool uses_gs(const Decoded& decoded);

/// The memory operand that is reached through gs, or relative to rip; null when there is none.
const ZydisDecodedOperand* gs_memory(const Decoded& decoded);
const ZydisDecodedOperand* rip_memory(const Decoded& decoded);

/// True when the instruction reads, writes or addresses with any part of a 64-bit register, also implicitly.
bool uses(const Decoded& decoded, ZydisRegister wanted);

/// False for an instruction behind which execution never goes on: a jump, a return, a trap.
bool falls_through(const ZydisDecodedInstruction& instruction);

/// The instruction without a gs prefix, its memory operand `memory` at base + index * scale + displacement; nothing
/// when Zydis has no encoding that does the same.
struct Place {
  ZydisRegister base;
  ZydisRegister index;
  std::uint8_t scale;
  std::int64_t displacement;
};
std::optional<std::vector<std::byte>> with_memory_at(const Decoded& decoded, const ZydisDecodedOperand& memory,
                                                     const Place& place);

/// "65 48 8b 09"
std::string describe_bytes(std::span<const std::byte> bytes);

/// One instruction in Intel notation. With its address, what it is relative to is written as an address.
std::string disassemble(std::span<const std::byte> bytes, std::uint64_t vmaddr = ZYDIS_RUNTIME_ADDRESS_NONE);

}  // namespace vlm::tessera
