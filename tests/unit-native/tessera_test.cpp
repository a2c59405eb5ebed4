// Tessera: instructions to trampolines, images to sites, lists behind libraries. That trampolines do what the
// instructions would have done is shown by gs_cases_test, which runs them.
#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#include <doctest/doctest.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>

#include "host/shim_catalogue.h"
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

TEST_CASE("an instruction that cannot run elsewhere is refused with the reason") {
  static constexpr struct {
    std::string_view instruction, reason;
  } cases[] = {
      {"65 48 89 24 25 00 01 00 00", "it uses rsp, which the trampoline moves"},  // mov gs:[256], rsp
      {"65 ff 14 25 00 01 00 00", "it is a branch"},                              // call gs:[256]
      {"65 67 48 8b 40 08", "it computes its address in 32 bits (67h prefix)"},   // mov rax, gs:[eax+8]
      {"65 48 8b 05 00 01 00 00", "its address is relative to rip"},              // mov rax, gs:[rip+256]
      {"65 48 a1 00 00 00 00 01 00 00 00", "its displacement needs more than 32 bits"},
      {"65 48 ad", "its memory operand is implied, so it cannot be given another base register"},  // lodsq
      {"65 c4 e2 61 90 0c 95 00 00 00 00", "its memory operand has no plain base register"},       // vpgatherdd
      {"8c e8", "it handles the gs register itself"},                                              // mov eax, gs
      {"65 48 8b 00 e8 00 00 00 00", "its neighbour call +0x05 is a call, whose return address must lie in the image"},
      {"65 48 8b 00 0f 0b", "its neighbour ud2 is a trap, which belongs where it is"},
      {"65 48 8b 00 0f 05", "its neighbour syscall is for the system"},
      {"65 48 8b 00 ff 35 00 00 00 00", "its neighbour push [rip] uses rsp, which the trampoline moves"},
      {"65 8f 00 65 48 8b 00", "it moves rsp, and another gs access follows"},
      {"65 8b 00 c3 50", "code follows that is reached from elsewhere"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.instruction);
    const auto trampoline = make_trampoline(bytes_of(c.instruction));
    REQUIRE_FALSE(trampoline.has_value());
    CHECK_EQ(trampoline.error().text, c.reason);
  }
}

// ---- Images ---------------------------------------------------------------------------------------------------------

static constexpr std::uint64_t text_vmaddr = 0x100000000;
static constexpr std::uint64_t code_vmaddr = text_vmaddr + test::header_room;

/// An image whose section __text is this code. Data in code is (offset in the code, length).
struct CodeImage {
  test::Bytes file;
  MachImage image = {};

  CodeImage(std::string_view code, std::vector<test::SymbolDraft> symbols = {},
            std::vector<std::pair<unsigned, unsigned>> data_in_code = {}, unsigned rebase_at = 0) {
    const auto bytes = bytes_of(code);
    test::ImageDraft draft;
    test::SegmentDraft text{"__TEXT", text_vmaddr, 0x3000, VM_PROT_READ | VM_PROT_EXECUTE, {}, {}};
    text.content.append(bytes).pad_to(0x800);
    const std::uint64_t table_at = test::header_room + text.content.size();
    for (const auto& [offset, length] : data_in_code) {
      text.content.u32(test::header_room + offset).u16(length).u16(1);
    }
    text.sections = {{"__TEXT", "__text", code_vmaddr, bytes.size()}, {"__TEXT", "__const", code_vmaddr + 0x900, 0x40}};
    text.content.pad_to(0x900).append(bytes_of("65 48 8b 04 25 00 01 00 00")).pad_to(0x1000);  // a site, but no code
    draft.segments = {text};
    if (rebase_at != 0) draft.rebase.u8(0x20).uleb(test::header_room + rebase_at).u8(0x51);
    draft.symbols = std::move(symbols);
    draft.more_commands = {test::Bytes().u32(0x29).u32(16).u32(table_at).u32(8 * data_in_code.size())};
    file = test::build_image(draft);
    constexpr std::size_t flags_of_first_section = sizeof(MachHeader64) + sizeof(SegmentCommand64) + 64;
    file.put_at(flags_of_first_section, std::uint32_t{0x80000400});  // pure and some instructions
    image.file_data = file.data();
    image.file_size = file.size();
    REQUIRE(macho_read_commands(image).has_value());
    image.base = image.vm_min;
  }
  CodeImage(const CodeImage&) = delete;
};

static std::string text_of(const ImagePatch& patch) {
  std::string text;
  for (const auto& each : patch.pieces) {
    text += std::to_string(each.vmaddr - code_vmaddr) + " " + describe_bytes(each.bytes) + "\n";
  }
  for (const auto& refusal : patch.refusals) text += refusal + "\n";
  for (const auto& warning : patch.unread) text += "warning: " + warning + "\n";
  return text;
}

TEST_CASE("sites are found in code, and only there") {
  const struct {
    std::string_view what, code, found;
    std::vector<test::SymbolDraft> symbols = {};
    std::vector<std::pair<unsigned, unsigned>> data_in_code = {};
    unsigned rebase_at = 0;
  } cases[] = {
      // clang-format off: a case to a line
      {"between other instructions", "55 65 48 8b 04 25 00 01 00 00 c3", "1 65 48 8b 04 25 00 01 00 00\n"},
      {"the bytes of one inside an immediate", "48 b8 65 48 8b 04 25 00 01 00 c3", ""},
      {"a jump table that would swallow the function behind it", "c3 48 b8 65 48 83 00 01 c3", "3 65 48 83 00 01\n", {}, {{1, 2}}},
      {"data that does not decode, and a function behind it", "c3 06 06 06 65 48 83 00 01 c3", "4 65 48 83 00 01\nwarning: 3 bytes at 0x100001001 (_first+0x1) do not decode as instructions; a gs access among them is not redirected\n", {{"_first", N_SECT, code_vmaddr}, {"_second", N_SECT, code_vmaddr + 4}}},
      {"a shorter one before a return and padding", "90 65 8b 00 c3 66 90 90", "1 65 8b 00 c3 66 90\n"},
      {"neighbours in front of a call", "48 89 f8 65 48 8b 00 e8 00 00 00 00", "0 48 89 f8 65 48 8b 00\n"},
      {"a short one that has room only with the one in front", "65 48 83 00 01 65 48 8b 00 e8 00 00 00 00", "0 65 48 83 00 01 65 48 8b 00\n"},
      {"a branch to the neighbour behind: the one in front goes", "eb 05 90 65 48 8b 00 48 89 c7 c3", "2 90 65 48 8b 00\n"},
      {"a branch to the access itself, and a neighbour behind", "eb 01 90 65 48 8b 00 48 89 c7 c3", "3 65 48 8b 00 48 89 c7\n"},
      {"an instruction shorter than a jump, with nothing to move", "e8 00 00 00 00 65 48 8b 00 e8 00 00 00 00", "cannot replace the instruction at 0x100001005 (_get_specific+0x5), 65 48 8b 00, mov rax, gs:[rax]: its neighbour call +0x05 is a call, whose return address must lie in the image\n", {{"_get_specific", N_SECT, code_vmaddr}}},
      {"branches on both sides", "74 05 90 65 48 8b 00 90 7f fa c3 eb f6", "cannot replace the instruction at 0x100001003 (no symbol), 65 48 8b 00, mov rax, gs:[rax]: it has 4 bytes, a jump to its trampoline needs 5, and a branch leads to its neighbour\n"},
      {"a branch into an instruction", "74 01 f0 65 48 ff 04 25 00 01 00 00 c3", "3 65 48 ff 04 25 00 01 00 00\ncannot replace the instruction at 0x100001002 (no symbol), f0 65 48 ff 04 25 00 01 00 00, lock inc gs:[0x0000000000000100]: a branch leads into it\n"},
      // Ways into code that are no branches keep the neighbour behind a short access in place.
      {"an address computed relative to rip", "48 8d 05 05 00 00 00 90 65 48 8b 00 48 89 c7 c3", "7 90 65 48 8b 00\n"},
      // Jump tables that the linker does not name: lea, movsxd, add, jmp; the table behind the code.
      {"a jump table is data", "48 8d 0d 0f 00 00 00 48 63 04 b9 48 01 c8 ff e0 65 48 83 00 01 c3 fa ff ff ff fa ff ff ff", "16 65 48 83 00 01\n"},
      {"an entry that leads across a symbol to the neighbour behind a short access", "48 8d 0d 12 00 00 00 48 63 04 b9 48 01 c8 ff e0 90 65 48 8b 00 48 89 c7 c3 fc ff ff ff", "16 90 65 48 8b 00\n", {{"_outer", N_SECT, code_vmaddr}, {"_inner", N_SECT, code_vmaddr + 16}}},
      {"one whose address was kept in memory", "48 8d 0d 0f 00 00 00 90 90 90 90 90 90 90 ff e0 90 65 48 8b 00 c3 fa ff ff ff fa ff ff ff", "17 65 48 8b 00 c3\n"},
      {"the same when the branch comes from another function", "c3 06 06 06 65 48 83 00 01 c3 e8 f5 ff ff ff c3", "4 65 48 83 00 01\nwarning: 3 bytes at 0x100001001 (_first+0x1) do not decode as instructions; a gs access among them is not redirected\n", {{"_first", N_SECT, code_vmaddr}, {"_second", N_SECT, code_vmaddr + 10}}},
      {"a neighbour that the loader changes stays", "90 65 48 8b 00 48 b9 00 00 00 00 00 00 00 00 c3", "0 90 65 48 8b 00\n", {}, {}, 7},
      // clang-format on
  };
  for (const auto& c : cases) {
    CAPTURE(c.what);
    const CodeImage made(c.code, c.symbols, c.data_in_code, c.rebase_at);
    const auto patch = patch_image(made.image);
    REQUIRE(patch.has_value());
    CHECK_EQ(text_of(*patch), c.found);
  }
}

TEST_CASE("a check names what of a list does not fit the image") {
  const CodeImage made("55 65 48 8b 04 25 00 01 00 00 65 48 8b 00 c3");
  const CodeImage other("55 90 65 48 8b 04 25 00 01 00 00 c3 90 90 90");
  const auto patch = patch_image(made.image);
  REQUIRE(patch.has_value());
  const auto problems = [&](const MachImage& image, const std::function<void(std::vector<PatchedPiece>&)>& change) {
    ImagePatch from = *patch;
    change(from.pieces);
    const auto list = patch_list(made.image, from);
    const auto check = check_patch_list(image, std::span(list).first(list.size() - gs_patch_trailer_size));
    if (!check) return check.error().text;
    std::string text;
    for (const auto& problem : check->problems) text += problem + "\n";
    return text;
  };
  CHECK_EQ(problems(made.image, [](auto&) {}), "");
  CHECK_EQ(problems(made.image, [](auto& pieces) { pieces.pop_back(); }),
           "no entry replaces the instruction at 0x10000100a (no symbol), 65 48 8b 00, mov rax, gs:[rax]\n");
  CHECK_EQ(problems(made.image, [](auto& pieces) { pieces.push_back(pieces.back()); }),
           "two entries replace the bytes at 0x10000100a (no symbol)\n");
  CHECK_EQ(problems(made.image, [](auto& pieces) { pieces[0].trampoline.code[21] = std::byte{0x8A}; }),
           "entry 0 at 0x100001001 (no symbol): its trampoline cannot be used with a TLS expansion slot\n");
  CHECK(problems(made.image, [](auto& pieces) {
          pieces[1].bytes = pieces[1].bytes.first(4);
        }).starts_with("entry 1 at 0x10000100a (no symbol): its lengths make no sense"));
  CHECK(problems(other.image, [](auto&) {})
            .starts_with("entry 0 at 0x100001001 (no symbol): the image has 90 65 48 8b 04 25 00 01 00, expected 65 48 "
                         "8b 04 25 00 01 00 00\n"));
  const auto nothing = write_patch_list({});
  const auto check = check_patch_list(CodeImage("c3 06 06").image, std::span(nothing).first(16));
  REQUIRE(check.has_value());
  CHECK((check->problems.empty() && check->unread.size() == 1));
  CHECK_EQ(check_patch_list(made.image, bytes_of("01 02")).error().text, "the patch list is not a gs patch file");

  CodeImage cut("c3", {}, {{0, 1}});
  const auto command = std::ranges::search(cut.file, bytes_of("29 00 00 00 10 00 00 00"));  // the table of data in code
  cut.file.put_at(static_cast<std::size_t>(command.end() - cut.file.begin()), std::uint32_t{0xFFFFFFF0});
  CHECK(patch_image(cut.image).error().text.starts_with(
      "load command 0x29 names 8 bytes at offset 4294967280 of a file of "));
}

// ---- Libraries ------------------------------------------------------------------------------------------------------

/// The least that counts as the library: a 64-bit Windows file with a section of shims.
static test::Bytes library_bytes() {
  test::Bytes file;
  file.u16(0x5A4D).pad_to(0x3C);
  file.u32(0x40).u32(0x4550).u16(0x8664).u16(1).pad_to(0x54);
  file.u16(32).u16(0).u16(0x20B).pad_to(0x78);
  file.text(shim_section).pad_to(0x80);
  return file.u32(8).u32(0x1000).u32(8).u32(0xA0).pad_to(0xA8);
}

TEST_CASE("a list is appended, and the one of an earlier build replaced; what is not the library is refused") {
  const auto library = library_bytes();
  const auto instruction = bytes_of("65 48 83 00 01");
  const PatchEntry entry = {7, instruction, 8, instruction};
  const auto empty_list = write_patch_list({}), longer_list = write_patch_list(std::span(&entry, 1));
  const auto once = with_patch_list(library, longer_list);
  REQUIRE(once.has_value());
  test::Bytes expected = library;
  CHECK(std::ranges::equal(*once, expected.append(longer_list)));
  CHECK((*with_patch_list(*once, empty_list) == *with_patch_list(library, empty_list)));

  const auto fault_of = [&](std::span<const std::byte> file) { return with_patch_list(file, empty_list).error().text; };
  auto of_another = library;
  of_another[0x78] = std::byte{'x'};
  CHECK(fault_of(of_another).starts_with("it has no section .shims"));
  CHECK_EQ(fault_of(bytes_of("7f 45 4c 46")), "it does not begin with \"MZ\", so it is no Windows library");
  for (const std::uint64_t size : {0, 255, 8}) {  // in the trailer: 0, more than the file, a blob without its magic
    auto damaged = library;
    CHECK_EQ(fault_of(damaged.u64(0).u64(size).text("VLMGSPEM")),
             "it ends in a damaged patch list; build the library anew");
  }
}
