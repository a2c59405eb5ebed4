// Tessera: instructions to trampolines, images to sites, lists behind libraries.
//
// Trampolines are not only compared with expected bytes: they run here, on this machine, against the instruction that
// they replace. gs is free on x86-64 Linux (libc uses fs), so a test may point it where it likes.
#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#include <doctest/doctest.h>

#include <asm/prctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <numeric>
#include <sstream>
#include <string>
#include <string_view>

#include "macho/commands.h"
#include "support/macho_builder.h"
#include "tessera/check_list.h"
#include "tessera/instruction.h"
#include "tessera/library_file.h"
#include "tessera/patch_image.h"
#include "tessera/trampoline.h"
#include "tls/patch_list.h"

using namespace vlm;
using namespace vlm::tessera;
using namespace std::string_view_literals;

static std::vector<std::byte> bytes_of(std::string_view hexadecimal) {
  std::vector<std::byte> bytes;
  std::istringstream in{std::string(hexadecimal)};
  for (unsigned value; in >> std::hex >> value;) bytes.push_back(static_cast<std::byte>(value));
  return bytes;
}

/// A template's text, or "refused: " and the reason.
static std::string trampoline_of(std::string_view instruction) {
  const auto trampoline = make_trampoline(bytes_of(instruction));
  return trampoline ? describe_bytes(trampoline->code) : "refused: " + trampoline.error().text;
}

static constexpr auto enter_with_rcx =
    "48 8d 64 24 80 51 48 b9 00 00 00 00 00 00 00 00 48 8b 09 65 48 8b 09 "sv;
static constexpr auto enter_with_rdx =
    "48 8d 64 24 80 52 48 ba 00 00 00 00 00 00 00 00 48 8b 12 65 48 8b 12 "sv;
static constexpr auto leave = " 48 8d a4 24 80 00 00 00 ff 25 00 00 00 00 00 00 00 00 00 00 00 00"sv;
static constexpr auto jump_to_return_slot_text = "ff 25 00 00 00 00 00 00 00 00 00 00 00 00"sv;

TEST_CASE("a gs access becomes the same access relative to a scratch register") {
  static constexpr struct {
    std::string_view instruction;
    char scratch;  // c: rcx, d: rdx
    std::string_view access;
    std::string_view moved = "";
  } cases[] = {
      {"65 48 8b 04 c5 00 00 00 00", 'c', "48 8b 04 c1"},                     // mov rax, gs:[rax*8]
      {"65 48 8b 0c cd 00 00 00 00", 'd', "48 8b 0c ca"},                     // mov rcx, gs:[rcx*8]
      {"65 48 8b 04 25 00 0f 00 00", 'c', "48 8b 81 00 0f 00 00"},            // mov rax, gs:[0xf00]
      {"65 48 8b 04 25 f8 ff ff ff", 'c', "48 8b 41 f8"},                     // mov rax, gs:[-8]
      {"65 48 a1 00 0f 00 00 00 00 00 00", 'c', "48 8b 81 00 0f 00 00"},      // movabs rax, gs:[0xf00]
      {"65 4d 8b 4d 00", 'c', "4e 8b 0c 29"},                                 // mov r9, gs:[r13]
      {"65 48 8b 5c b0 10", 'c', "48 8d 0c 01 48 8b 5c b1 10"},               // mov rbx, gs:[rax+rsi*4+16]
      {"65 66 c7 04 25 00 01 00 00 34 12", 'c', "66 c7 81 00 01 00 00 34 12"},  // mov word ptr gs:[256], 0x1234
      {"65 8a 2c 25 00 01 00 00", 'd', "8a aa 00 01 00 00"},                  // mov ch, gs:[256]
      {"65 f0 48 0f b1 0c 25 00 01 00 00", 'd', "f0 48 0f b1 8a 00 01 00 00"},  // lock cmpxchg gs:[256], rcx
      {"65 48 8b 44 24 08", 'c', "48 8d 8c 0c 88 00 00 00 48 8b 41 08"},        // mov rax, gs:[rsp+8]
      {"65 48 8b 00 48 8b 3f", 'c', "48 8b 04 01", "48 8b 3f"},                // a neighbour behind
  };
  for (const auto& c : cases) {
    CAPTURE(c.instruction);
    const bool rcx = c.scratch == 'c';
    std::string expected(rcx ? enter_with_rcx : enter_with_rdx);
    expected.append(c.access).append(rcx ? " 59" : " 5a").append(leave);
    const std::size_t end = expected.size() - jump_to_return_slot_text.size();
    if (!c.moved.empty()) expected.insert(end, std::string(c.moved) + " ");
    CHECK_EQ(trampoline_of(c.instruction), expected);
  }
}

TEST_CASE("an instruction that cannot run elsewhere is refused with the reason") {
  static constexpr struct {
    std::string_view instruction, reason;
  } cases[] = {
      {"65 48 89 24 25 00 01 00 00", "it uses rsp, which the trampoline moves"},  // mov gs:[256], rsp
      {"65 ff 14 25 00 01 00 00", "it is a branch"},                              // call gs:[256]
      {"65 ff 24 25 00 01 00 00", "it is a branch"},                              // jmp gs:[256]
      {"65 67 48 8b 40 08", "it computes its address in 32 bits (67h prefix)"},   // mov rax, gs:[eax+8]
      {"65 48 8b 05 00 01 00 00", "its address is relative to rip"},              // mov rax, gs:[rip+256]
      {"65 48 a1 00 00 00 00 01 00 00 00", "its displacement needs more than 32 bits"},
      {"65 48 ad", "its memory operand is implied, so it cannot be given another base register"},  // lodsq
      {"65 c4 e2 61 90 0c 95 00 00 00 00", "its memory operand has no plain base register"},       // vpgatherdd
      {"8c e8", "it handles the gs register itself"},                             // mov eax, gs
      {"0f 01 f8", "it handles the gs register itself"},                          // swapgs
      {"65 48 8b", "it does not decode"},
      {"65 48 8b 00 e8 00 00 00 00",
       "its neighbour call +0x05 is a call, whose return address must lie in the image"},
      {"65 48 8b 00 0f 0b", "its neighbour ud2 is a trap, which belongs where it is"},
      {"65 48 8b 00 0f 05", "its neighbour syscall is for the system"},
      {"65 48 8b 00 ff 35 00 00 00 00",
       "its neighbour push [rip] uses rsp, which the trampoline moves"},
      {"65 48 8b 00 50 65 48 8b 00", "its neighbour push rax uses rsp, which the trampoline moves"},
      {"65 8f 00 65 48 8b 00", "it moves rsp, and another gs access follows"},
      {"65 8b 00 c3 50", "code follows that is reached from elsewhere"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.instruction);
    CHECK_EQ(trampoline_of(c.instruction), "refused: " + std::string(c.reason));
  }
}

// ---- Running --------------------------------------------------------------------------------------------------------

/// What a piece of code starts with and leaves behind. run_code reads and writes it by these offsets.
struct Machine {
  std::uint64_t registers[15];  // rax rcx rdx rbx rbp rsi rdi r8 ... r15
  std::uint64_t flags;
  std::uint8_t xmm3[16];
  std::uint64_t red_zone[16];  // below rsp

  bool operator==(const Machine&) const = default;
};
static_assert(offsetof(Machine, flags) == 120 && offsetof(Machine, xmm3) == 128 && offsetof(Machine, red_zone) == 144);

extern "C" void run_code(Machine* machine, const void* code);
extern "C" char after_code[];  // where the code jumps to at its end

asm(R"(
  .local saved_machine, saved_rsp, code_address
  .comm saved_machine, 8
  .comm saved_rsp, 8
  .comm code_address, 8
  .globl run_code, after_code
run_code:
  pushq %rbx
  pushq %rbp
  pushq %r12
  pushq %r13
  pushq %r14
  pushq %r15
  movq %rdi, saved_machine(%rip)
  movq %rsp, saved_rsp(%rip)
  movq %rsi, code_address(%rip)
  leaq -128(%rsp), %rax
  xorl %ecx, %ecx
1: movq 144(%rdi,%rcx,8), %rdx
  movq %rdx, (%rax,%rcx,8)
  incq %rcx
  cmpq $16, %rcx
  jne 1b
  leaq -256(%rsp), %rsp
  pushq 120(%rdi)
  popfq
  leaq 256(%rsp), %rsp
  movups 128(%rdi), %xmm3
  movq 0(%rdi), %rax
  movq 8(%rdi), %rcx
  movq 16(%rdi), %rdx
  movq 24(%rdi), %rbx
  movq 32(%rdi), %rbp
  movq 40(%rdi), %rsi
  movq 56(%rdi), %r8
  movq 64(%rdi), %r9
  movq 72(%rdi), %r10
  movq 80(%rdi), %r11
  movq 88(%rdi), %r12
  movq 96(%rdi), %r13
  movq 104(%rdi), %r14
  movq 112(%rdi), %r15
  movq 48(%rdi), %rdi
  jmpq *code_address(%rip)
after_code:
  leaq -256(%rsp), %rsp
  pushfq
  pushq %rdi
  movq saved_machine(%rip), %rdi
  popq 48(%rdi)
  popq 120(%rdi)
  movq %rax, 0(%rdi)
  movq %rcx, 8(%rdi)
  movq %rdx, 16(%rdi)
  movq %rbx, 24(%rdi)
  movq %rbp, 32(%rdi)
  movq %rsi, 40(%rdi)
  movq %r8, 56(%rdi)
  movq %r9, 64(%rdi)
  movq %r10, 72(%rdi)
  movq %r11, 80(%rdi)
  movq %r12, 88(%rdi)
  movq %r13, 96(%rdi)
  movq %r14, 104(%rdi)
  movq %r15, 112(%rdi)
  movups %xmm3, 128(%rdi)
  leaq 256(%rsp), %rsp
  subq saved_rsp(%rip), %rsp      # 0, unless the code moved rsp
  movq %rsp, %rdx
  movq saved_rsp(%rip), %rsp
  xorq %rdx, 48(%rdi)             # a moved rsp shows as a wrong rdi
  leaq -128(%rsp), %rax
  xorl %ecx, %ecx
2: movq (%rax,%rcx,8), %rdx
  movq %rdx, 144(%rdi,%rcx,8)
  incq %rcx
  cmpq $16, %rcx
  jne 2b
  popq %r15
  popq %r14
  popq %r13
  popq %r12
  popq %rbp
  popq %rbx
  ret
)");

using Storage = std::array<std::uint64_t, 512>;

struct Outcome {
  Machine machine;
  Storage storage;
  bool operator==(const Outcome&) const = default;
};

/// Runs code that ends in a return slot, with gs at `gs` and the storage that the code is to reach at `storage`.
static Outcome run(std::vector<std::byte> code, const void* gs, Storage& storage, std::uint64_t flags) {
  const void* const end = after_code;
  std::memcpy(code.data() + code.size() - sizeof end, &end, sizeof end);
  void* executable = mmap(nullptr, 4096, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  REQUIRE(executable != MAP_FAILED);
  std::memcpy(executable, code.data(), code.size());

  for (std::size_t i = 0; i < storage.size(); ++i) storage[i] = 0x0101'0101'0101'0101 * (i % 251);
  Machine machine = {};
  // Small multiples of 8, all different: any two make an address in the storage, a wrong one reads a wrong value.
  for (std::size_t i = 0; i < 15; ++i) machine.registers[i] = 16 + 8 * i;
  machine.flags = flags;
  std::iota(std::begin(machine.xmm3), std::end(machine.xmm3), 0xA0);
  for (std::size_t i = 0; i < 16; ++i) machine.red_zone[i] = 0xDEAD'0000 + i;

  REQUIRE(syscall(SYS_arch_prctl, ARCH_SET_GS, gs) == 0);
  run_code(&machine, executable);
  syscall(SYS_arch_prctl, ARCH_SET_GS, nullptr);
  munmap(executable, 4096);
  return {machine, storage};
}

static const std::vector<std::byte> jump_to_return_slot = bytes_of(jump_to_return_slot_text);

TEST_CASE("a trampoline leaves registers, flags, storage and red zone as the instruction on a Mac does") {
  static constexpr std::string_view instructions[] = {
      "65 48 8b 04 c5 00 00 00 00",        // mov rax, gs:[rax*8]
      "65 48 8b 00",                       // mov rax, gs:[rax]
      "65 48 8b 0c cd 00 00 00 00",        // mov rcx, gs:[rcx*8]
      "65 48 89 0c c5 00 00 00 00",        // mov gs:[rax*8], rcx
      "65 48 89 4a 08",                    // mov gs:[rdx+8], rcx
      "65 48 0f c7 0c 25 00 01 00 00",     // cmpxchg16b gs:[256]
      "65 48 8b 5c b0 10",                 // mov rbx, gs:[rax+rsi*4+16]
      "65 48 8b 04 c8",                    // mov rax, gs:[rax+rcx*8]
      "65 4d 8b 4d 00",                    // mov r9, gs:[r13]
      "65 4e 8b 3c e5 00 01 00 00",        // mov r15, gs:[r12*8+256]
      "65 88 04 25 00 01 00 00",           // mov gs:[256], al
      "65 8a 2c 25 00 01 00 00",           // mov ch, gs:[256]
      "65 48 a1 00 01 00 00 00 00 00 00",  // movabs rax, gs:[256]
      "65 f0 4c 0f c1 04 25 00 01 00 00",  // lock xadd gs:[256], r8
      "65 f0 48 0f b1 0c 25 00 01 00 00",  // lock cmpxchg gs:[256], rcx
      "65 48 83 3c 25 00 01 00 00 28",     // cmp qword ptr gs:[256], 40
      "65 48 11 1c 25 00 01 00 00",        // adc gs:[256], rbx
      "65 48 f7 24 25 00 01 00 00",        // mul qword ptr gs:[256]
      "65 0f 10 18",                       // movups xmm3, gs:[rax]
      "65 0f 11 5c 38 01",                 // movups gs:[rax+rdi+1], xmm3
      "65 0f b7 44 3d 00",                 // movzx eax, word ptr gs:[rbp+rdi]
      "65 4c 69 5e 08 e8 03 00 00",        // imul r11, gs:[rsi+8], 1000
      "65 66 c7 04 25 00 01 00 00 34 12",  // mov word ptr gs:[256], 0x1234
      "65 d3 24 25 00 01 00 00",           // shl dword ptr gs:[256], cl
      "65 ff 0c 25 08 01 00 00",           // dec dword ptr gs:[264]
      "65 0f 94 04 25 00 01 00 00",        // sete gs:[256]
  };
  for (const auto text : instructions) {
    CAPTURE(text);
    const auto instruction = bytes_of(text);
    auto trampoline = make_trampoline(instruction);
    REQUIRE(trampoline.has_value());

    // Windows: gs is the environment block, one slot of which leads to the storage.
    static Storage storage;
    static std::array<std::uint64_t, 0x1800 / 8> environment_block;
    static const std::uint64_t game_storage_offset = 0x14A8;
    environment_block[game_storage_offset / 8] = reinterpret_cast<std::uint64_t>(storage.data());
    const auto* offset_address = &game_storage_offset;
    std::memcpy(trampoline->code.data() + trampoline->slot, &offset_address, sizeof offset_address);

    auto original = instruction;
    original.insert(original.end(), jump_to_return_slot.begin(), jump_to_return_slot.end());

    constexpr std::uint64_t clear = 0x202, all_set = 0xAD7;  // CF PF AF ZF SF OF, beside the interrupt flag
    for (const std::uint64_t flags : {clear, all_set}) {
      CAPTURE(flags);
      const Outcome on_mac = run(original, storage.data(), storage, flags);
      const Outcome here = run(trampoline->code, environment_block.data(), storage, flags);
      for (int i = 0; i < 15; ++i) {
        CAPTURE(i);
        CHECK_EQ(here.machine.registers[i], on_mac.machine.registers[i]);
      }
      CHECK_EQ(here.machine.flags, on_mac.machine.flags);
      CHECK((here == on_mac));
    }
  }
}

// ---- Images ---------------------------------------------------------------------------------------------------------

static constexpr std::uint64_t text_vmaddr = 0x100000000;
static constexpr std::uint64_t code_vmaddr = text_vmaddr + test::header_room;

struct CodeImage {
  test::Bytes file;
  MachImage image = {};
};

/// An image whose section __text is this code. Data in code is (offset in the code, length).
static std::unique_ptr<CodeImage> image_of(std::string_view code, std::vector<test::SymbolDraft> symbols,
                                           std::vector<std::pair<unsigned, unsigned>> data_in_code = {}) {
  const auto bytes = bytes_of(code);
  test::ImageDraft draft;
  test::SegmentDraft text{"__TEXT", text_vmaddr, 0x3000, VM_PROT_READ | VM_PROT_EXECUTE, {}, {}};
  text.content.append(bytes).pad_to(0x800);
  const std::uint64_t table_at = test::header_room + text.content.size();
  for (const auto& [offset, length] : data_in_code) {
    text.content.u32(test::header_room + offset).u16(length).u16(1);
  }
  text.sections = {{"__TEXT", "__text", code_vmaddr, bytes.size()}, {"__TEXT", "__const", code_vmaddr + 0x900, 0x40}};
  text.content.pad_to(0x900);
  text.content.append(bytes_of("65 48 8b 04 25 00 01 00 00"));  // looks like a site, but no code
  text.content.pad_to(0x1000);
  draft.segments = {text};
  draft.symbols = std::move(symbols);
  draft.more_commands = {test::Bytes().u32(0x29).u32(16).u32(table_at).u32(8 * data_in_code.size())};

  auto made = std::make_unique<CodeImage>();
  made->file = test::build_image(draft);
  constexpr std::size_t flags_of_first_section = sizeof(MachHeader64) + sizeof(SegmentCommand64) + 64;
  made->file.put_at(flags_of_first_section, std::uint32_t{0x80000400});  // pure and some instructions
  made->image.file_data = made->file.data();
  made->image.file_size = made->file.size();
  const auto read = read_commands(made->image);
  REQUIRE(read.has_value());
  made->image.base = made->image.vm_min;
  return made;
}

static std::string text_of(const ImagePatch& patch) {
  std::string text;
  for (const auto& each : patch.pieces) {
    text += std::to_string(each.vmaddr - code_vmaddr) + " " + describe_bytes(each.bytes) + "\n";
  }
  for (const auto& refusal : patch.refusals) text += refusal + "\n";
  for (const auto& warning : patch.warnings) text += "warning: " + warning + "\n";
  return text;
}

TEST_CASE("sites are found in code, and only there") {
  const struct {
    std::string_view what, code;
    std::vector<test::SymbolDraft> symbols;
    std::vector<std::pair<unsigned, unsigned>> data_in_code;
    std::string_view found;
  } cases[] = {
      {"between other instructions", "55 65 48 8b 04 25 00 01 00 00 c3", {}, {}, "1 65 48 8b 04 25 00 01 00 00\n"},
      {"two side by side", "65 48 83 00 01 65 48 01 48 08 c3", {}, {}, "0 65 48 83 00 01\n5 65 48 01 48 08\n"},
      {"the bytes of one inside an immediate", "48 b8 65 48 8b 04 25 00 01 00 c3", {}, {}, ""},
      {"prefixes that do nothing", "65 48 8d 04 c5 00 00 00 00 65 66 0f 1f 00 65 90 c3", {}, {}, ""},
      {"padding of zeros", "c3 00 00 00", {}, {}, ""},
      {"a jump table that would swallow the function behind it",
       "c3 48 b8 65 48 83 00 01 c3",
       {},
       {{1, 2}},
       "3 65 48 83 00 01\n"},
      {"data that does not decode, and a function behind it",
       "c3 06 06 06 65 48 83 00 01 c3",
       {{"_first", N_SECT, code_vmaddr}, {"_second", N_SECT, code_vmaddr + 4}},
       {},
       "4 65 48 83 00 01\n"
       "warning: 3 bytes at 0x100001001 (_first+0x1) do not decode as instructions; a gs access among them is not "
       "redirected\n"},
      {"a short one before a return", "90 65 48 8b 00 c3", {}, {}, "1 65 48 8b 00 c3\n"},
      {"a shorter one before a return and padding", "90 65 8b 00 c3 66 90 90", {}, {}, "1 65 8b 00 c3 66 90\n"},
      {"neighbours in front of a call", "48 89 f8 65 48 8b 00 e8 00 00 00 00", {}, {}, "0 48 89 f8 65 48 8b 00\n"},
      {"one neighbour on each side", "50 65 8b 00 58 e8 00 00 00 00", {}, {}, "0 50 65 8b 00 58\n"},
      {"two short ones", "65 48 8b 00 65 48 8b 00 e8 00 00 00 00", {}, {}, "0 65 48 8b 00 65 48 8b 00\n"},
      {"a short one that has room only with the one in front",
       "65 48 83 00 01 65 48 8b 00 e8 00 00 00 00",
       {},
       {},
       "0 65 48 83 00 01 65 48 8b 00\n"},
      {"a branch to the neighbour behind: the one in front goes", "eb 05 90 65 48 8b 00 48 89 c7 c3", {}, {},
       "2 90 65 48 8b 00\n"},
      {"a branch to the access itself, and a neighbour behind", "eb 01 90 65 48 8b 00 48 89 c7 c3", {}, {},
       "3 65 48 8b 00 48 89 c7\n"},
      {"an instruction shorter than a jump, with nothing to move",
       "e8 00 00 00 00 65 48 8b 00 e8 00 00 00 00",
       {{"_get_specific", N_SECT, code_vmaddr}},
       {},
       "cannot replace the instruction at 0x100001005 (_get_specific+0x5), 65 48 8b 00, mov rax, gs:[rax]: its "
       "neighbour call +0x05 is a call, whose return address must lie in the image\n"},
      {"branches on both sides",
       "74 05 90 65 48 8b 00 90 7f fa c3 eb f6",
       {},
       {},
       "cannot replace the instruction at 0x100001003 (no symbol), 65 48 8b 00, mov rax, gs:[rax]: it has 4 bytes, a "
       "jump to its trampoline needs 5, and a branch leads to its neighbour\n"},
      {"a branch into an instruction",
       "74 01 f0 65 48 ff 04 25 00 01 00 00 c3",
       {},
       {},
       "cannot replace the instruction at 0x100001002 (no symbol), f0 65 48 ff 04 25 00 01 00 00, lock inc "
       "gs:[0x0000000000000100]: a branch leads into it\n"},
      {"an instruction that cannot be moved",
       "65 48 89 24 25 00 01 00 00 c3",
       {},
       {},
       "cannot replace the instruction at 0x100001000 (no symbol), 65 48 89 24 25 00 01 00 00, mov "
       "gs:[0x0000000000000100], rsp: it uses rsp, which the trampoline moves\n"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.what);
    const auto made = image_of(c.code, c.symbols, c.data_in_code);
    const auto patch = patch_image(made->image);
    REQUIRE(patch.has_value());
    CHECK_EQ(text_of(*patch), c.found);
  }
}

TEST_CASE("a table that lies outside of the file is refused") {
  const auto made = image_of("c3", {}, {{0, 1}});
  auto& file = made->file;
  const auto start_of_command = bytes_of("29 00 00 00 10 00 00 00");
  const auto command = std::ranges::search(file, start_of_command).begin();
  file.put_at(static_cast<std::size_t>(command - file.begin()) + 8, std::uint32_t{0xFFFFFFF0});
  const auto patch = patch_image(made->image);
  REQUIRE_FALSE(patch.has_value());
  CHECK(patch.error().text.starts_with("load command 0x29 names 8 bytes at offset 4294967280 of a file of "));
}

TEST_CASE("the list holds each site with its distance from the image's start") {
  const auto made = image_of("55 65 48 8b 04 25 00 01 00 00 c3", {});
  const auto patch = patch_image(made->image);
  REQUIRE(patch.has_value());
  const auto list = patch_list(made->image, *patch);
  const auto blob = std::span(list).first(list.size() - gs_patch_trailer_size);
  PatchListReader reader(blob);
  CHECK_EQ(reader.count(), 1);
  const auto entry = reader.next();
  REQUIRE(entry.has_value());
  CHECK_EQ(entry->site, test::header_room + 1);
  CHECK_EQ(describe_bytes(entry->expected), "65 48 8b 04 25 00 01 00 00");
  CHECK_EQ(describe_bytes(entry->trampoline), trampoline_of("65 48 8b 04 25 00 01 00 00"));
  CHECK_EQ(entry->slot, 8);
}

TEST_CASE("ways into code that are no branches keep a neighbour in place") {
  // A short access with a neighbour on both sides; something leads to the one behind.
  static constexpr struct {
    std::string_view what, code, found;
    bool has_table = false;  // 4 bytes at 26
  } cases[] = {
      {"nothing", "90 65 48 8b 00 48 89 c7 c3", "1 65 48 8b 00 48 89 c7\n"},
      {"an address computed relative to rip", "48 8d 05 05 00 00 00 90 65 48 8b 00 48 89 c7 c3",
       "7 90 65 48 8b 00\n"},
      {"a jump table",
       "48 8d 05 13 00 00 00 90 65 48 8b 00 48 89 c7 ff e0 c3 66 66 66 66 66 66 66 90 f2 ff ff ff",
       "7 90 65 48 8b 00\n", true},
      {"the same numbers, but nothing jumps through a register",
       "48 8d 05 13 00 00 00 90 65 48 8b 00 48 89 c7 66 90 c3 66 66 66 66 66 66 66 90 f2 ff ff ff",
       "8 65 48 8b 00 48 89 c7\n", true},
  };
  for (const auto& c : cases) {
    CAPTURE(c.what);
    std::vector<std::pair<unsigned, unsigned>> data;
    if (c.has_table) data = {{26, 4}};
    CHECK_EQ(text_of(*patch_image(image_of(c.code, {}, data)->image)), c.found);
  }
}

TEST_CASE("a check names what of a list does not fit the image") {
  const auto code = "55 65 48 8b 04 25 00 01 00 00 65 48 8b 00 c3"sv;
  const auto made = image_of(code, {});
  const auto other = image_of("55 90 65 48 8b 04 25 00 01 00 00 c3 90 90 90", {});
  const auto patch = patch_image(made->image);
  REQUIRE(patch.has_value());
  const auto problems = [&](const MachImage& image, ImagePatch from) {
    const auto list = patch_list(made->image, from);
    const auto check = check_patch_list(image, std::span(list).first(list.size() - gs_patch_trailer_size));
    if (!check) return check.error().text;
    std::string text;
    for (const auto& problem : check->problems) text += problem + "\n";
    return text;
  };
  CHECK_EQ(problems(made->image, *patch), "");

  ImagePatch one_less = *patch;
  one_less.pieces.pop_back();
  CHECK_EQ(problems(made->image, one_less),
           "no entry replaces the instruction at 0x10000100a (no symbol), 65 48 8b 00, mov rax, gs:[rax]\n");
  ImagePatch twice = *patch;
  twice.pieces.push_back(twice.pieces.back());
  CHECK_EQ(problems(made->image, twice), "two entries replace the bytes at 0x10000100a (no symbol)\n");
  ImagePatch other_layout = *patch;
  other_layout.pieces[0].trampoline.code[21] = std::byte{0x8A};
  CHECK_EQ(problems(made->image, other_layout),
           "entry 0 at 0x100001001 (no symbol): its trampoline cannot be used with a TLS expansion slot\n");
  ImagePatch short_entry = *patch;
  short_entry.pieces[1].bytes = short_entry.pieces[1].bytes.first(4);
  CHECK(problems(made->image, short_entry)
            .starts_with("entry 1 at 0x10000100a (no symbol): its lengths make no sense"));
  CHECK(problems(other->image, *patch)
            .starts_with("entry 0 at 0x100001001 (no symbol): the image has 90 65 48 8b 04 25 00 01 00, expected 65 48 "
                         "8b 04 25 00 01 00 00\n"));
  CHECK_EQ(check_patch_list(made->image, bytes_of("01 02")).error().text, "the patch list is not a gs patch file");
}

// ---- Libraries ------------------------------------------------------------------------------------------------------

TEST_CASE("a list is appended, and the one of an earlier build replaced") {
  const auto library = bytes_of("4d 5a 90 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12 13 14");
  const std::vector<std::byte> empty_list = write_patch_list({});
  const auto instruction = bytes_of("65 48 83 00 01");
  const PatchEntry entry = {7, instruction, 8, instruction};
  const std::vector<std::byte> longer_list = write_patch_list(std::span(&entry, 1));

  const auto once = with_patch_list(library, longer_list);
  REQUIRE(once.has_value());
  CHECK(std::equal(library.begin(), library.end(), once->begin()));
  CHECK_EQ(once->size(), library.size() + longer_list.size());
  const auto twice = with_patch_list(*once, empty_list);
  REQUIRE(twice.has_value());
  CHECK((*twice == *with_patch_list(library, empty_list)));
}

TEST_CASE("a file that is no library, or ends in half a list, is refused") {
  static constexpr struct {
    std::string_view file, reason;
  } cases[] = {
      {"", "it does not begin with \"MZ\", so it is no Windows library"},
      {"7f 45 4c 46", "it does not begin with \"MZ\", so it is no Windows library"},
      // sizes in the trailer: 0, more than the file, a blob without its magic
      {"4d 5a 00 00 00 00 00 00 00 00 56 4c 4d 47 53 50 45 4d",
       "it ends in a damaged patch list; build the library anew"},
      {"4d 5a ff 00 00 00 00 00 00 00 56 4c 4d 47 53 50 45 4d",
       "it ends in a damaged patch list; build the library anew"},
      {"4d 5a 01 02 03 04 05 06 07 08 08 00 00 00 00 00 00 00 56 4c 4d 47 53 50 45 4d",
       "it ends in a damaged patch list; build the library anew"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.file);
    const auto file = with_patch_list(bytes_of(c.file), write_patch_list({}));
    REQUIRE_FALSE(file.has_value());
    CHECK_EQ(file.error().text, c.reason);
  }
}
