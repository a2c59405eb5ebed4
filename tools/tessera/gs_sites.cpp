#include "tessera/gs_sites.h"

#include <Zydis/Zydis.h>

#include <algorithm>

namespace vlm::tessera {
namespace {

/// True when executing the instruction depends on gs: it reads or writes memory through it, or handles gs itself. A
/// gs prefix alone says little: assemblers pad with it, and lea ignores it.
bool uses_gs(const ZydisDecodedInstruction& instruction, std::span<const ZydisDecodedOperand> operands) {
  switch (instruction.mnemonic) {
    case ZYDIS_MNEMONIC_SWAPGS:
    case ZYDIS_MNEMONIC_RDGSBASE:
    case ZYDIS_MNEMONIC_WRGSBASE:
    case ZYDIS_MNEMONIC_LGS:
      return true;
    case ZYDIS_MNEMONIC_NOP:
      return false;
    default:
      break;
  }
  return std::ranges::any_of(operands, [](const ZydisDecodedOperand& operand) {
    if (operand.type == ZYDIS_OPERAND_TYPE_REGISTER) return operand.reg.value == ZYDIS_REGISTER_GS;
    return operand.type == ZYDIS_OPERAND_TYPE_MEMORY && operand.mem.segment == ZYDIS_REGISTER_GS &&
           operand.mem.type != ZYDIS_MEMOP_TYPE_AGEN;
  });
}

bool all_zero(std::span<const std::byte> bytes) {
  return std::ranges::all_of(bytes, [](std::byte byte) { return byte == std::byte{0}; });
}

}  // namespace

GsSearch find_gs_sites(std::span<const CodeRange> ranges) {
  ZydisDecoder decoder;
  ZydisDecoderInit(&decoder, ZYDIS_MACHINE_MODE_LONG_64, ZYDIS_STACK_WIDTH_64);
  GsSearch found;
  for (const CodeRange& range : ranges) {
    for (std::size_t at = 0; at < range.bytes.size();) {
      const auto rest = range.bytes.subspan(at);
      ZydisDecodedInstruction instruction;
      ZydisDecodedOperand operands[ZYDIS_MAX_OPERAND_COUNT];
      if (ZYAN_FAILED(ZydisDecoderDecodeFull(&decoder, rest.data(), rest.size(), &instruction, operands))) {
        if (!all_zero(rest)) found.undecoded.push_back({range.vmaddr + at, rest.size()});
        break;
      }
      if (uses_gs(instruction, std::span(operands, instruction.operand_count))) {
        found.sites.push_back({range.vmaddr + at, rest.first(instruction.length)});
      }
      at += instruction.length;
    }
  }
  return found;
}

}  // namespace vlm::tessera
