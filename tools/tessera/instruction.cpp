#include "tessera/instruction.h"

#include <algorithm>
#include <cstdio>

namespace vlm::tessera {
namespace {

bool same_operand(const ZydisDecodedOperand& left, const ZydisDecodedOperand& right) {
  if (left.type != right.type || left.size != right.size || left.actions != right.actions) return false;
  switch (left.type) {
    case ZYDIS_OPERAND_TYPE_REGISTER: return left.reg.value == right.reg.value;
    case ZYDIS_OPERAND_TYPE_IMMEDIATE: return left.imm.value.u == right.imm.value.u;
    default: return true;  // the one memory operand is compared apart
  }
}

bool same_vector_options(const ZydisDecodedInstructionAvx& left, const ZydisDecodedInstructionAvx& right) {
  return left.vector_length == right.vector_length && left.mask.mode == right.mask.mode &&
         left.mask.reg == right.mask.reg && left.broadcast.mode == right.broadcast.mode &&
         left.rounding.mode == right.rounding.mode && left.has_sae == right.has_sae;
}

/// True when `code` is one instruction that does what `original` does, but at `place`.
bool is_same_access(const Decoded& original, std::span<const std::byte> code, const Place& place) {
  constexpr ZydisInstructionAttributes prefixes = ZYDIS_ATTRIB_HAS_LOCK | ZYDIS_ATTRIB_HAS_REP | ZYDIS_ATTRIB_HAS_REPE |
                                                  ZYDIS_ATTRIB_HAS_REPNE | ZYDIS_ATTRIB_HAS_XACQUIRE |
                                                  ZYDIS_ATTRIB_HAS_XRELEASE;
  const auto found = decode(code);
  if (!found || found->size() != code.size()) return false;
  if (found->instruction.mnemonic != original.instruction.mnemonic ||
      found->instruction.operand_width != original.instruction.operand_width ||
      ((found->instruction.attributes ^ original.instruction.attributes) & prefixes) != 0 ||
      !same_vector_options(found->instruction.avx, original.instruction.avx) ||
      !std::ranges::equal(found->visible(), original.visible(), same_operand)) {
    return false;
  }
  const auto at = std::ranges::find(found->visible(), ZYDIS_OPERAND_TYPE_MEMORY, &ZydisDecodedOperand::type);
  if (at == found->visible().end()) return false;
  const bool same_scale = place.index == ZYDIS_REGISTER_NONE || at->mem.scale == place.scale;
  return at->mem.segment != ZYDIS_REGISTER_GS && at->mem.base == place.base && at->mem.index == place.index &&
         same_scale && at->mem.disp.value == place.displacement;
}

template <class Wanted>
const ZydisDecodedOperand* find_memory(const Decoded& decoded, Wanted wanted) {
  const auto at = std::ranges::find_if(decoded.all(), [&](const ZydisDecodedOperand& operand) {
    return operand.type == ZYDIS_OPERAND_TYPE_MEMORY && wanted(operand.mem);
  });
  return at == decoded.all().end() ? nullptr : &*at;
}

}  // namespace

std::optional<Decoded> decode(std::span<const std::byte> bytes) {
  ZydisDecoder decoder;
  ZydisDecoderInit(&decoder, machine_mode, ZYDIS_STACK_WIDTH_64);
  Decoded decoded;
  if (ZYAN_FAILED(
          ZydisDecoderDecodeFull(&decoder, bytes.data(), bytes.size(), &decoded.instruction, decoded.operands))) {
    return std::nullopt;
  }
  return decoded;
}

bool uses_gs(const Decoded& decoded) {
  switch (decoded.instruction.mnemonic) {
    case ZYDIS_MNEMONIC_SWAPGS:
    case ZYDIS_MNEMONIC_RDGSBASE:
    case ZYDIS_MNEMONIC_WRGSBASE:
    case ZYDIS_MNEMONIC_LGS: return true;
    case ZYDIS_MNEMONIC_NOP: return false;
    default: break;
  }
  return gs_memory(decoded) != nullptr || std::ranges::any_of(decoded.all(), [](const ZydisDecodedOperand& operand) {
           return operand.type == ZYDIS_OPERAND_TYPE_REGISTER && operand.reg.value == ZYDIS_REGISTER_GS;
         });
}

const ZydisDecodedOperand* gs_memory(const Decoded& decoded) {
  return find_memory(decoded, [](const auto& memory) {
    return memory.segment == ZYDIS_REGISTER_GS && memory.type != ZYDIS_MEMOP_TYPE_AGEN;
  });
}

const ZydisDecodedOperand* rip_memory(const Decoded& decoded) {
  return find_memory(decoded, [](const auto& memory) {
    return memory.base == ZYDIS_REGISTER_RIP || memory.base == ZYDIS_REGISTER_EIP;
  });
}

bool uses(const Decoded& decoded, ZydisRegister wanted) {
  const auto is_wanted = [&](ZydisRegister reg) {
    return reg != ZYDIS_REGISTER_NONE && ZydisRegisterGetLargestEnclosing(machine_mode, reg) == wanted;
  };
  return std::ranges::any_of(decoded.all(), [&](const ZydisDecodedOperand& operand) {
    if (operand.type == ZYDIS_OPERAND_TYPE_REGISTER) return is_wanted(operand.reg.value);
    return operand.type == ZYDIS_OPERAND_TYPE_MEMORY && (is_wanted(operand.mem.base) || is_wanted(operand.mem.index));
  });
}

bool falls_through(const ZydisDecodedInstruction& instruction) {
  switch (instruction.mnemonic) {
    case ZYDIS_MNEMONIC_UD0:
    case ZYDIS_MNEMONIC_UD1:
    case ZYDIS_MNEMONIC_UD2:
    case ZYDIS_MNEMONIC_HLT: return false;
    default:
      return instruction.meta.category != ZYDIS_CATEGORY_UNCOND_BR && instruction.meta.category != ZYDIS_CATEGORY_RET;
  }
}

std::optional<std::vector<std::byte>> with_memory_at(const Decoded& decoded, const ZydisDecodedOperand& memory,
                                                     const Place& place) {
  ZydisEncoderRequest request;
  if (memory.visibility == ZYDIS_OPERAND_VISIBILITY_HIDDEN ||
      ZYAN_FAILED(ZydisEncoderDecodedInstructionToEncoderRequest(
          &decoded.instruction, decoded.operands, decoded.instruction.operand_count_visible, &request))) {
    return std::nullopt;
  }
  request.prefixes &= ~ZYDIS_ATTRIB_HAS_SEGMENT_GS;
  auto& operand = request.operands[&memory - decoded.operands].mem;
  operand.base = place.base;
  operand.index = place.index;
  operand.scale = place.index == ZYDIS_REGISTER_NONE ? 0 : place.scale;
  operand.displacement = place.displacement;

  std::vector<std::byte> code(ZYDIS_MAX_INSTRUCTION_LENGTH);
  ZyanUSize size = code.size();
  if (ZYAN_FAILED(ZydisEncoderEncodeInstruction(&request, code.data(), &size))) return std::nullopt;
  code.resize(size);
  if (!is_same_access(decoded, code, place)) return std::nullopt;
  return code;
}

std::string describe_bytes(std::span<const std::byte> bytes) {
  std::string text;
  for (const std::byte byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%s%02x", text.empty() ? "" : " ", std::to_integer<unsigned>(byte));
    text += digits;
  }
  return text;
}

std::string disassemble(std::span<const std::byte> bytes, std::uint64_t vmaddr) {
  const auto decoded = decode(bytes);
  if (!decoded) return describe_bytes(bytes);
  ZydisFormatter formatter;
  ZydisFormatterInit(&formatter, ZYDIS_FORMATTER_STYLE_INTEL);
  char text[256];
  ZydisFormatterFormatInstruction(&formatter, &decoded->instruction, decoded->operands,
                                  decoded->instruction.operand_count_visible, text, sizeof text, vmaddr, nullptr);
  return text;
}

}  // namespace vlm::tessera
