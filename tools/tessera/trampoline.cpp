#include "tessera/trampoline.h"

#include <Zydis/Zydis.h>

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <optional>

namespace vlm::tessera {
namespace {

constexpr ZydisMachineMode mode = ZYDIS_MACHINE_MODE_LONG_64;

struct Decoded {
  ZydisDecodedInstruction instruction;
  ZydisDecodedOperand operands[ZYDIS_MAX_OPERAND_COUNT];

  std::span<const ZydisDecodedOperand> all() const { return {operands, instruction.operand_count}; }
  std::span<const ZydisDecodedOperand> visible() const { return {operands, instruction.operand_count_visible}; }
};

std::optional<Decoded> decode(std::span<const std::byte> bytes) {
  ZydisDecoder decoder;
  ZydisDecoderInit(&decoder, mode, ZYDIS_STACK_WIDTH_64);
  Decoded decoded;
  if (ZYAN_FAILED(ZydisDecoderDecodeFull(&decoder, bytes.data(), bytes.size(), &decoded.instruction,
                                         decoded.operands))) {
    return std::nullopt;
  }
  return decoded;
}

bool is_gs_memory(const ZydisDecodedOperand& operand) {
  return operand.type == ZYDIS_OPERAND_TYPE_MEMORY && operand.mem.segment == ZYDIS_REGISTER_GS;
}

/// True when the instruction reads, writes or addresses with any part of a 64-bit register, also implicitly.
bool uses(const Decoded& decoded, ZydisRegister wanted) {
  const auto is_wanted = [&](ZydisRegister reg) {
    return reg != ZYDIS_REGISTER_NONE && ZydisRegisterGetLargestEnclosing(mode, reg) == wanted;
  };
  return std::ranges::any_of(decoded.all(), [&](const ZydisDecodedOperand& operand) {
    if (operand.type == ZYDIS_OPERAND_TYPE_REGISTER) return is_wanted(operand.reg.value);
    return operand.type == ZYDIS_OPERAND_TYPE_MEMORY && (is_wanted(operand.mem.base) || is_wanted(operand.mem.index));
  });
}

/// What forbids running the instruction somewhere else with another base, in words; null when nothing does.
const char* obstacle(const Decoded& decoded, const ZydisDecodedOperand& memory) {
  const ZydisDecodedInstruction& instruction = decoded.instruction;
  if (memory.visibility != ZYDIS_OPERAND_VISIBILITY_EXPLICIT) {
    return "its memory operand is implied, so it cannot be given another base register";
  }
  if (instruction.meta.branch_type != ZYDIS_BRANCH_TYPE_NONE) return "it is a branch";
  if (memory.mem.type != ZYDIS_MEMOP_TYPE_MEM) return "its memory operand has no plain base register";
  if (instruction.address_width != 64) return "it computes its address in 32 bits (67h prefix)";
  if (memory.mem.base == ZYDIS_REGISTER_RIP) return "its address is relative to rip";
  if (uses(decoded, ZYDIS_REGISTER_RSP)) return "it uses rsp, which the trampoline moves";
  if (memory.mem.disp.value != static_cast<std::int32_t>(memory.mem.disp.value)) {
    return "its displacement needs more than 32 bits";
  }
  return nullptr;
}

/// Appends the encoded request; false when Zydis has no encoding for it.
bool encode(const ZydisEncoderRequest& request, std::vector<std::byte>& code) {
  std::byte bytes[ZYDIS_MAX_INSTRUCTION_LENGTH];
  ZyanUSize size = sizeof bytes;
  if (ZYAN_FAILED(ZydisEncoderEncodeInstruction(&request, bytes, &size))) return false;
  code.insert(code.end(), bytes, bytes + size);
  return true;
}

/// lea scratch, [scratch+base]: adds without touching the flags.
ZydisEncoderRequest add_base(ZydisRegister scratch, ZydisRegister base) {
  ZydisEncoderRequest request = {};
  request.machine_mode = mode;
  request.mnemonic = ZYDIS_MNEMONIC_LEA;
  request.operand_count = 2;
  request.operands[0].type = ZYDIS_OPERAND_TYPE_REGISTER;
  request.operands[0].reg.value = scratch;
  request.operands[1].type = ZYDIS_OPERAND_TYPE_MEMORY;
  request.operands[1].mem.base = scratch;
  request.operands[1].mem.index = base;
  request.operands[1].mem.scale = 1;
  request.operands[1].mem.size = 8;
  return request;
}

bool same_operand(const ZydisDecodedOperand& left, const ZydisDecodedOperand& right) {
  if (left.type != right.type || left.size != right.size || left.actions != right.actions) return false;
  switch (left.type) {
    case ZYDIS_OPERAND_TYPE_REGISTER:
      return left.reg.value == right.reg.value;
    case ZYDIS_OPERAND_TYPE_IMMEDIATE:
      return left.imm.value.u == right.imm.value.u;
    default:
      return true;  // the one memory operand is compared apart
  }
}

/// True when `code` is one instruction that does what `original` does, but at base + index * scale + the displacement.
bool is_same_access(const Decoded& original, std::span<const std::byte> code, const ZydisEncoderOperand& memory) {
  constexpr ZydisInstructionAttributes prefixes = ZYDIS_ATTRIB_HAS_LOCK | ZYDIS_ATTRIB_HAS_REP |
                                                  ZYDIS_ATTRIB_HAS_REPE | ZYDIS_ATTRIB_HAS_REPNE;
  const auto found = decode(code);
  if (!found || found->instruction.length != code.size()) return false;
  if (found->instruction.mnemonic != original.instruction.mnemonic ||
      found->instruction.operand_width != original.instruction.operand_width ||
      ((found->instruction.attributes ^ original.instruction.attributes) & prefixes) != 0 ||
      !std::ranges::equal(found->visible(), original.visible(), same_operand)) {
    return false;
  }
  const auto at = std::ranges::find(found->visible(), ZYDIS_OPERAND_TYPE_MEMORY, &ZydisDecodedOperand::type);
  if (at == found->visible().end()) return false;
  const bool same_scale = at->mem.index == ZYDIS_REGISTER_NONE || at->mem.scale == memory.mem.scale;
  return at->mem.segment != ZYDIS_REGISTER_GS && at->mem.base == memory.mem.base &&
         at->mem.index == memory.mem.index && same_scale && at->mem.disp.value == memory.mem.displacement;
}

void append(std::vector<std::byte>& code, std::initializer_list<unsigned> bytes) {
  for (const unsigned byte : bytes) code.push_back(static_cast<std::byte>(byte));
}

}  // namespace

Result<std::vector<std::byte>> make_trampoline(std::span<const std::byte> bytes) {
  const auto decoded = decode(bytes);
  if (!decoded || decoded->instruction.length != bytes.size()) return fault("it does not decode");
  const auto found = std::ranges::find_if(decoded->all(), is_gs_memory);
  if (found == decoded->all().end()) return fault("it handles the gs register itself");
  const ZydisDecodedOperand& original = *found;
  if (const char* reason = obstacle(*decoded, original)) return fault("%s", reason);

  ZydisRegister scratch = ZYDIS_REGISTER_RCX;
  if (uses(*decoded, scratch)) scratch = ZYDIS_REGISTER_RDX;
  if (uses(*decoded, scratch)) return fault("it uses rcx and rdx, so no scratch register is free");
  const unsigned r = scratch == ZYDIS_REGISTER_RCX ? 1 : 2;

  ZydisEncoderRequest request;
  if (ZYAN_FAILED(ZydisEncoderDecodedInstructionToEncoderRequest(
          &decoded->instruction, decoded->operands, decoded->instruction.operand_count_visible, &request))) {
    return fault("Zydis cannot encode it anew");
  }
  request.prefixes &= ~ZYDIS_ATTRIB_HAS_SEGMENT_GS;
  ZydisEncoderOperand& memory = request.operands[found - decoded->all().begin()];
  const ZydisRegister base = original.mem.base;
  const bool both = base != ZYDIS_REGISTER_NONE && original.mem.index != ZYDIS_REGISTER_NONE;
  memory.mem.base = scratch;
  if (!both && base != ZYDIS_REGISTER_NONE) {
    memory.mem.index = base;
    memory.mem.scale = 1;
  }

  std::vector<std::byte> code;
  append(code, {0x48, 0x8D, 0x64, 0x24, 0x80});               // lea rsp, [rsp-0x80]
  append(code, {0x50 + r});                                   // push R
  append(code, {0x48, 0xB8 + r, 0, 0, 0, 0, 0, 0, 0, 0});     // mov R, imm64
  append(code, {0x48, 0x8B, r << 3 | r});                     // mov R, [R]
  append(code, {0x65, 0x48, 0x8B, r << 3 | r});               // mov R, gs:[R]
  if (both && !encode(add_base(scratch, base), code)) return fault("Zydis cannot encode the sum of base and scratch");
  const std::size_t access = code.size();
  if (!encode(request, code) || !is_same_access(*decoded, std::span(code).subspan(access), memory)) {
    return fault("Zydis does not encode it the same with another base register");
  }
  append(code, {0x58 + r});                                         // pop R
  append(code, {0x48, 0x8D, 0xA4, 0x24, 0x80, 0x00, 0x00, 0x00});   // lea rsp, [rsp+0x80]
  append(code, {0xFF, 0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});   // jmp [rip+0] and the return slot
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

std::string disassemble(std::span<const std::byte> bytes) {
  const auto decoded = decode(bytes);
  if (!decoded) return describe_bytes(bytes);
  ZydisFormatter formatter;
  ZydisFormatterInit(&formatter, ZYDIS_FORMATTER_STYLE_INTEL);
  char text[256];
  ZydisFormatterFormatInstruction(&formatter, &decoded->instruction, decoded->operands,
                                  decoded->instruction.operand_count_visible, text, sizeof text,
                                  ZYDIS_RUNTIME_ADDRESS_NONE, nullptr);
  return text;
}

std::vector<std::string> disassemble_trampoline(std::span<const std::byte> code) {
  std::vector<std::string> lines;
  constexpr std::size_t return_slot = 8;
  for (std::size_t at = 0; at + return_slot < code.size();) {
    const auto decoded = decode(code.subspan(at));
    if (!decoded) break;
    const auto bytes = code.subspan(at, decoded->instruction.length);
    std::string line = describe_bytes(bytes);
    line.resize(std::max<std::size_t>(line.size() + 2, 34), ' ');
    line += disassemble(bytes);
    at += bytes.size();
    if (at == address_slot + sizeof(std::uint64_t)) line += "  ; the loader fills in where the offset stands";
    lines.push_back(line);
  }
  lines.push_back("00 00 00 00 00 00 00 00           ; the loader fills in where to return to");
  return lines;
}

}  // namespace vlm::tessera
