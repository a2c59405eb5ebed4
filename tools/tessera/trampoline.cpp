#include "tessera/trampoline.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <optional>

#include "tessera/instruction.h"

namespace vlm::tessera {
namespace {

using Bytes = std::vector<std::byte>;

/// Scratch registers in order of preference, by their numbers in encodings. Not rsp, rbp, r12 and r13: the loader has
/// to recognise "mov R, gs:[R]" without SIB byte and displacement.
constexpr unsigned scratch_registers[] = {1, 2, 0, 3, 6, 7, 8, 9, 10, 11, 14, 15};

constexpr std::int64_t inside_depth = 0x88;  // how much lower rsp is inside: the red zone and R

ZydisRegister register_of(unsigned number) { return static_cast<ZydisRegister>(ZYDIS_REGISTER_RAX + number); }

/// An instruction of the piece.
struct Step {
  Decoded decoded;
  std::span<const std::byte> bytes;
  std::int64_t end;  // its end, relative to the end of the piece: 0 or less

  bool is_access() const { return uses_gs(decoded); }
  bool is_branch() const { return decoded.instruction.meta.branch_type != ZYDIS_BRANCH_TYPE_NONE; }
  bool is_relative_branch() const { return is_branch() && decoded.instruction.raw.imm[0].is_relative; }
  bool is_stack_access() const {
    const auto mnemonic = decoded.instruction.mnemonic;
    return mnemonic == ZYDIS_MNEMONIC_PUSH || mnemonic == ZYDIS_MNEMONIC_POP;
  }
  /// True when it needs the return slot: it is relative to rip.
  bool is_relative() const { return is_relative_branch() || rip_memory(decoded) != nullptr; }
  std::int64_t branch_target() const { return end + decoded.instruction.raw.imm[0].value.s; }
};

/// Why a gs access cannot be given another base register, in words; null when nothing forbids it.
const char* access_obstacle(const Step& step) {
  const ZydisDecodedOperand* const memory = gs_memory(step.decoded);
  if (memory == nullptr) return "it handles the gs register itself";
  if (memory->visibility != ZYDIS_OPERAND_VISIBILITY_EXPLICIT) {
    return "its memory operand is implied, so it cannot be given another base register";
  }
  if (step.is_branch()) return "it is a branch";
  if (memory->mem.type != ZYDIS_MEMOP_TYPE_MEM) return "its memory operand has no plain base register";
  if (step.decoded.instruction.address_width != 64) return "it computes its address in 32 bits (67h prefix)";
  if (memory->mem.base == ZYDIS_REGISTER_RIP) return "its address is relative to rip";
  if (memory->mem.disp.value != static_cast<std::int32_t>(memory->mem.disp.value)) {
    return "its displacement needs more than 32 bits";
  }
  if (step.is_stack_access()) {
    return step.decoded.instruction.operand_width == 64 ? nullptr : "it moves rsp by 2";
  }
  const bool moves_rsp = std::ranges::any_of(step.decoded.all(), [](const ZydisDecodedOperand& operand) {
    return operand.type == ZYDIS_OPERAND_TYPE_REGISTER &&
           ZydisRegisterGetLargestEnclosing(machine_mode, operand.reg.value) == ZYDIS_REGISTER_RSP;
  });
  return moves_rsp ? "it uses rsp, which the trampoline moves" : nullptr;
}

/// Why an instruction beside the access cannot be moved; null when nothing forbids it.
const char* move_obstacle(const Step& step, bool inside) {
  const ZydisDecodedInstruction& instruction = step.decoded.instruction;
  switch (instruction.meta.category) {
    case ZYDIS_CATEGORY_CALL: return "is a call, whose return address must lie in the image";
    case ZYDIS_CATEGORY_INTERRUPT:
    case ZYDIS_CATEGORY_SYSCALL:
    case ZYDIS_CATEGORY_SYSRET:
    case ZYDIS_CATEGORY_SYSTEM: return "is for the system";
    default: break;
  }
  if (!falls_through(instruction) && !step.is_branch()) return "is a trap, which belongs where it is";
  if (instruction.raw.imm[0].is_relative && !step.is_branch()) return "is relative to rip";
  if (step.is_relative_branch() && step.branch_target() != static_cast<std::int32_t>(step.branch_target())) {
    return "branches too far";
  }
  const bool in_memory = rip_memory(step.decoded) != nullptr;
  if (in_memory && step.is_branch()) return "jumps through memory relative to rip";
  if (in_memory && instruction.address_width != 64) return "computes its address in 32 bits";
  if ((in_memory || inside) && uses(step.decoded, ZYDIS_REGISTER_RSP)) return "uses rsp, which the trampoline moves";
  return nullptr;
}

/// Writes one template with one choice of R.
class Writer {
 public:
  explicit Writer(unsigned r) : r_(r) {}

  void copy(std::span<const std::byte> bytes) { code_.insert(code_.end(), bytes.begin(), bytes.end()); }

  void enter() {
    enter_with(r_);
    emit({wide(0, r_), 0xB8 + low(r_)});  // mov R, imm64
    slot_ = code_.size();
    emit32(0), emit32(0);
    emit({wide(r_, r_), 0x8B, low(r_) << 3 | low(r_)});        // mov R, [R]
    emit({0x65, wide(r_, r_), 0x8B, low(r_) << 3 | low(r_)});  // mov R, gs:[R]
  }

  /// `moved`: by how much the access itself changed rsp.
  void leave(std::int64_t moved) { leave_with(r_, moved); }

  /// The access, relative to R. `last`: R's value is not needed behind it.
  bool access(const Step& step, bool last) {
    const ZydisDecodedOperand& memory = *gs_memory(step.decoded);
    const bool pops = step.decoded.instruction.mnemonic == ZYDIS_MNEMONIC_POP;
    Place place = {register_of(r_), memory.mem.index, memory.mem.scale, memory.mem.disp.value};
    const ZydisRegister base = memory.mem.base;
    const bool adds_base =
        base != ZYDIS_REGISTER_NONE && (place.index != ZYDIS_REGISTER_NONE || base == ZYDIS_REGISTER_RSP);
    const bool keeps_r = adds_base && !last;
    if (keeps_r) push(r_);
    if (adds_base) {
      // A pop computes its address with the rsp behind it.
      add_base(base, inside_depth + (keeps_r ? 8 : 0) + (pops ? 8 : 0));
    } else if (base != ZYDIS_REGISTER_NONE) {
      place.index = base;
      place.scale = 1;
    }
    const auto code = with_memory_at(step.decoded, memory, place);
    if (!code) return false;
    if (pops) emit({0xFF, 0xB4, 0x24}), emit32(inside_depth);  // push [rsp+0x88]: the function's top of stack
    copy(*code);
    if (step.decoded.instruction.mnemonic == ZYDIS_MNEMONIC_PUSH) {
      emit({0x8F, 0x84, 0x24}), emit32(inside_depth - 8);  // pop [rsp+0x80]: right below it
    }
    if (keeps_r) pop(r_);
    return true;
  }

  /// An instruction with a rip-relative memory operand, relative to another scratch register instead.
  bool relative_access(const Step& step, bool inside) {
    const ZydisDecodedOperand& memory = *rip_memory(step.decoded);
    for (const unsigned r : scratch_registers) {
      if ((inside && r == r_) || uses(step.decoded, register_of(r))) continue;
      const auto code = with_memory_at(step.decoded, memory,
                                       {register_of(r), ZYDIS_REGISTER_NONE, 0, step.end + memory.mem.disp.value});
      if (!code) continue;
      inside ? push(r) : enter_with(r);
      load_return_slot(r);
      copy(*code);
      inside ? pop(r) : leave_with(r, 0);
      return true;
    }
    return false;
  }

  /// A direct branch. The condition stays in place and chooses between the next instruction and a jump anywhere.
  void branch(const Step& step, bool inside) {
    if (step.decoded.instruction.mnemonic == ZYDIS_MNEMONIC_JMP) return far_jump(step.branch_target(), inside);
    const auto& immediate = step.decoded.instruction.raw.imm[0];
    if (immediate.size == 8) {
      copy(step.bytes.first(immediate.offset));  // also jrcxz and loop, which have no longer form
    } else {
      emit({std::to_integer<unsigned>(step.bytes[immediate.offset - 1]) - 0x10});  // 0F 8x: 7x
    }
    emit({2, 0xEB, 0});  // jcc +2; jmp over the jump
    const std::size_t start = code_.size();
    far_jump(step.branch_target(), inside);
    code_[start - 1] = static_cast<std::byte>(code_.size() - start);
  }

  Trampoline finish() {
    emit({0xFF, 0x25, 0, 0, 0, 0});  // jmp [rip+0]
    for (const std::size_t at : return_slot_references_) {
      const auto distance = static_cast<std::uint32_t>(code_.size() - (at + 4));
      std::memcpy(code_.data() + at, &distance, sizeof distance);
    }
    emit32(0), emit32(0);  // the return slot
    return {std::move(code_), static_cast<std::uint16_t>(slot_)};
  }

 private:
  static constexpr unsigned low(unsigned reg) { return reg & 7; }
  /// REX prefix of a 64-bit operation: `reg` in the ModRM's reg field, `rm` in its r/m field or the opcode.
  static constexpr unsigned wide(unsigned reg, unsigned rm) { return 0x48 | (reg >> 3) << 2 | rm >> 3; }

  void emit(std::initializer_list<unsigned> bytes) {
    for (const unsigned byte : bytes) code_.push_back(static_cast<std::byte>(byte));
  }
  void emit32(std::int64_t value) {
    for (int i = 0; i < 4; ++i) code_.push_back(static_cast<std::byte>(value >> 8 * i));
  }
  void push(unsigned r) {
    if (r >= 8) emit({0x41});
    emit({0x50 + low(r)});
  }
  void pop(unsigned r) {
    if (r >= 8) emit({0x41});
    emit({0x58 + low(r)});
  }
  void enter_with(unsigned r) {
    emit({0x48, 0x8D, 0x64, 0x24, 0x80});  // lea rsp, [rsp-0x80]
    push(r);
  }
  void leave_with(unsigned r, std::int64_t moved) {
    pop(r);
    emit({0x48, 0x8D, 0xA4, 0x24}), emit32(0x80 + moved);  // lea rsp, [rsp+0x80]
  }
  void load_return_slot(unsigned r) {
    emit({wide(r, 0), 0x8B, low(r) << 3 | 5});  // mov r, [rip+...]
    return_slot_references_.push_back(code_.size());
    emit32(0);
  }
  /// lea R, [R+base]: adds without touching the flags. rsp counts as what it was outside, `depth` above.
  void add_base(ZydisRegister base, std::int64_t depth) {
    const auto number = static_cast<unsigned>(base - ZYDIS_REGISTER_RAX);
    const unsigned rex = 0x48 | (r_ >> 3) << 2;
    if (base == ZYDIS_REGISTER_RSP) {  // cannot be an index: [rsp+R+depth]
      emit({rex | (r_ >> 3) << 1, 0x8D, 0x84 | low(r_) << 3, low(r_) << 3 | 4}), emit32(depth);
    } else {
      emit({rex | (number >> 3) << 1 | r_ >> 3, 0x8D, 0x04 | low(r_) << 3, low(number) << 3 | low(r_)});
    }
  }
  /// A jump to `target`, relative to the end of the piece, that leaves registers, flags and the red zone alone: the
  /// address is put below the red zone.
  void far_jump(std::int64_t target, bool inside) {
    const unsigned r = inside ? r_ : scratch_registers[0];
    if (!inside) enter_with(r);
    load_return_slot(r);
    emit({wide(r, r), 0x8D, 0x80 | low(r) << 3 | low(r)}), emit32(target);  // lea r, [r+target]
    emit({wide(r, 0), 0x89, 0x44 | low(r) << 3, 0x24, 0xF8});               // mov [rsp-8], r
    leave_with(r, 0);
    emit({0xFF, 0xA4, 0x24}), emit32(-inside_depth - 8);  // jmp [rsp-0x90]
  }

  unsigned r_;
  Bytes code_;
  std::size_t slot_ = 0;
  std::vector<std::size_t> return_slot_references_;  // displacements to it, the last bytes of their instructions
};

Result<std::vector<Step>> split(std::span<const std::byte> piece) {
  std::vector<Step> steps;
  for (std::size_t at = 0; at < piece.size();) {
    const auto decoded = decode(piece.subspan(at));
    if (!decoded) return fault("it does not decode");
    const auto bytes = piece.subspan(at, decoded->size());
    at += bytes.size();
    if (!steps.empty() && !falls_through(steps.back().decoded.instruction)) {
      const bool padding = decoded->instruction.mnemonic == ZYDIS_MNEMONIC_NOP;
      if (!padding) return fault("code follows that is reached from elsewhere");
      continue;
    }
    steps.push_back({*decoded, bytes, static_cast<std::int64_t>(at) - static_cast<std::int64_t>(piece.size())});
  }
  return steps;
}

/// The steps from `first` to `last` are performed inside. Nothing when R does not do.
std::optional<Trampoline> write(std::span<const Step> steps, std::size_t first, std::size_t last, unsigned r) {
  Writer writer(r);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const Step& step = steps[i];
    const bool inside = i >= first && i <= last;
    if (i == first) writer.enter();
    if (inside && uses(step.decoded, register_of(r))) return std::nullopt;
    if (step.is_access()) {
      if (!writer.access(step, i == last)) return std::nullopt;
    } else if (step.is_relative_branch()) {
      writer.branch(step, inside);
    } else if (step.is_relative()) {
      if (!writer.relative_access(step, inside)) return std::nullopt;
    } else {
      writer.copy(step.bytes);
    }
    if (i == last) {
      const auto mnemonic = step.decoded.instruction.mnemonic;
      writer.leave(mnemonic == ZYDIS_MNEMONIC_PUSH ? -8 : mnemonic == ZYDIS_MNEMONIC_POP ? 8 : 0);
    }
  }
  return writer.finish();
}

}  // namespace

Result<Trampoline> make_trampoline(std::span<const std::byte> piece) {
  const auto steps = split(piece);
  if (!steps) return std::unexpected(steps.error());
  const auto first_access = std::ranges::find_if(*steps, &Step::is_access);
  if (first_access == steps->end()) return fault("nothing in it uses gs");
  const auto first_inside = std::min(first_access, std::ranges::find_if(*steps, &Step::is_relative));
  const auto first = static_cast<std::size_t>(first_inside - steps->begin());
  std::size_t last = steps->size() - 1;
  while (!(*steps)[last].is_access()) --last;
  for (std::size_t i = 0; i < steps->size(); ++i) {
    const Step& step = (*steps)[i];
    if (step.is_access()) {
      if (const char* reason = access_obstacle(step)) return fault("%s", reason);
      if (step.is_stack_access() && i != last) return fault("it moves rsp, and another gs access follows");
    } else if (const char* reason = move_obstacle(step, i >= first && i <= last)) {
      return fault("its neighbour %s %s", disassemble(step.bytes).c_str(), reason);
    }
  }
  for (const unsigned r : scratch_registers) {
    if (auto trampoline = write(*steps, first, last, r)) return *trampoline;
  }
  return fault("Zydis does not encode it the same with another base register, or it leaves no register free");
}

std::vector<std::string> disassemble_trampoline(const Trampoline& trampoline) {
  const std::span<const std::byte> code = trampoline.code;
  std::vector<std::string> lines;
  constexpr std::size_t return_slot = 8;
  for (std::size_t at = 0; at + return_slot < code.size();) {
    const auto decoded = decode(code.subspan(at));
    if (!decoded) break;
    const auto bytes = code.subspan(at, decoded->size());
    std::string line = describe_bytes(bytes);
    line.resize(std::max<std::size_t>(line.size() + 2, 34), ' ');
    line += disassemble(bytes);
    at += bytes.size();
    if (at == trampoline.slot + sizeof(std::uint64_t)) line += "  ; the loader fills in where the offset stands";
    lines.push_back(line);
  }
  lines.push_back("00 00 00 00 00 00 00 00           ; the loader fills in where to return to");
  return lines;
}

}  // namespace vlm::tessera
