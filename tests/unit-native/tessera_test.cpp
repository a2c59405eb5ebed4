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
      {"65 48 8b 05 00 01 00 00", "its address is relative to rip"},              // mov rax, gs:[rip+256]
      {"65 48 8b 00 e8 00 00 00 00", "its neighbour call +0x05 is a call, whose return address must lie in the image"},
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

/// An image whose section __text is this code.
struct CodeImage {
  test::Bytes file;
  MachImage image = {};

  /// Of the code, `data_length` bytes at 1 are data, and the loader changes the pointer at `rebase_at`.
  CodeImage(std::string_view code, std::vector<test::SymbolDraft> symbols = {}, unsigned data_length = 0,
            unsigned rebase_at = 0) {
    const auto bytes = bytes_of(code);
    test::ImageDraft draft;
    test::SegmentDraft text{"__TEXT", text_vmaddr, 0x3000, VM_PROT_READ | VM_PROT_EXECUTE, {}, {}};
    text.content.append(bytes).pad_to(0x800).u32(test::header_room + 1).u16(data_length).u16(1);
    text.sections = {{"__TEXT", "__text", code_vmaddr, bytes.size(), S_ATTR_PURE_INSTRUCTIONS},
                     {"__TEXT", "__const", code_vmaddr + 0x900, 0x40}};
    text.content.pad_to(0x900).append(bytes_of("65 48 8b 04 25 00 01 00 00")).pad_to(0x1000);  // a site, but no code
    draft.segments = {text};
    if (rebase_at != 0) draft.rebase.u8(0x20).uleb(test::header_room + rebase_at).u8(0x51);
    draft.symbols = std::move(symbols);
    draft.more_commands = {test::Bytes().u32(0x29).u32(16).u32(test::header_room + 0x800).u32(data_length ? 8 : 0)};
    file = test::build_image(draft);
    image.file_data = file.data();
    image.file_size = file.size();
    REQUIRE(macho_read_commands(image).has_value());
    image.base = image.vm_min;
  }
  CodeImage(const CodeImage&) = delete;
};

TEST_CASE("sites are found in code, and only there") {
  const struct {
    std::string_view what, code, found;
    std::vector<test::SymbolDraft> symbols = {};
    unsigned data_length = 0, rebase_at = 0;
  } cases[] = {
      // clang-format off: a case to a line
      {"between other instructions", "55 65 48 8b 04 25 00 01 00 00 c3", "1 65 48 8b 04 25 00 01 00 00\n"},
      {"the bytes of one inside an immediate", "48 b8 65 48 8b 04 25 00 01 00 c3", ""},
      {"a jump table that would swallow the function behind it", "c3 48 b8 65 48 83 00 01 c3", "3 65 48 83 00 01\n", {}, 2},
      {"data that does not decode, and a function behind it", "c3 06 06 06 65 48 83 00 01 c3", "4 65 48 83 00 01\nwarning: 3 bytes at 0x100001001 (_first+0x1) do not decode as instructions; a gs access among them is not redirected\n", {{"_first", N_SECT, code_vmaddr}, {"_second", N_SECT, code_vmaddr + 4}}},
      {"a shorter one before a return and padding", "90 65 8b 00 c3 66 90 90", "1 65 8b 00 c3 66 90\n"},
      {"neighbours in front of a call", "48 89 f8 65 48 8b 00 e8 00 00 00 00", "0 48 89 f8 65 48 8b 00\n"},
      {"a branch to the neighbour behind: the one in front goes", "eb 05 90 65 48 8b 00 48 89 c7 c3", "2 90 65 48 8b 00\n"},
      {"an instruction shorter than a jump, with nothing to move", "e8 00 00 00 00 65 48 8b 00 e8 00 00 00 00", "cannot replace the instruction at 0x100001005 (_get_specific+0x5), 65 48 8b 00, mov rax, gs:[rax]: its neighbour call +0x05 is a call, whose return address must lie in the image\n", {{"_get_specific", N_SECT, code_vmaddr}}},
      {"branches on both sides", "74 05 90 65 48 8b 00 90 7f fa c3 eb f6", "cannot replace the instruction at 0x100001003 (no symbol), 65 48 8b 00, mov rax, gs:[rax]: it has 4 bytes, a jump to its trampoline needs 5, and a branch leads to its neighbour\n"},
      {"a branch into an instruction", "74 01 f0 65 48 ff 04 25 00 01 00 00 c3", "3 65 48 ff 04 25 00 01 00 00\ncannot replace the instruction at 0x100001002 (no symbol), f0 65 48 ff 04 25 00 01 00 00, lock inc gs:[0x0000000000000100]: a branch leads into it\n"},
      // Ways into code that are no branches keep the neighbour behind a short access in place.
      {"an address computed relative to rip", "48 8d 05 05 00 00 00 90 65 48 8b 00 48 89 c7 c3", "7 90 65 48 8b 00\n"},
      {"a neighbour that the loader changes stays", "90 65 48 8b 00 48 b9 00 00 00 00 00 00 00 00 c3", "0 90 65 48 8b 00\n", {}, 0, 7},
      // clang-format on
  };
  for (const auto& c : cases) {
    CAPTURE(c.what);
    const CodeImage made(c.code, c.symbols, c.data_length, c.rebase_at);
    const auto patch = patch_image(made.image);
    REQUIRE(patch.has_value());
    std::string found;
    for (const auto& each : patch->pieces) {
      found += std::to_string(each.vmaddr - code_vmaddr) + " " + describe_bytes(each.bytes) + "\n";
    }
    for (const auto& refusal : patch->refusals) found += refusal + "\n";
    for (const auto& warning : patch->unread) found += "warning: " + warning + "\n";
    CHECK_EQ(found, c.found);
  }
}

TEST_CASE("a check names what of a list does not fit the image") {
  const CodeImage made("55 65 48 8b 04 25 00 01 00 00 65 48 8b 00 c3");
  const CodeImage other("55 90 65 48 8b 04 25 00 01 00 00 c3 90 90 90");
  const auto patch = patch_image(made.image);
  REQUIRE(patch.has_value());
  using Pieces = std::vector<PatchedPiece>;
  const struct {
    const MachImage& image;
    std::function<void(Pieces&)> change;
    std::string_view problems;  // how they begin
  } cases[] = {
      {made.image, [](Pieces&) {}, "(none)"},
      {made.image, [](Pieces& pieces) { pieces.pop_back(); },
       "no entry replaces the instruction at 0x10000100a (no symbol), 65 48 8b 00, mov rax, gs:[rax]"},
      {made.image, [](Pieces& pieces) { pieces.push_back(pieces.back()); },
       "two entries replace the bytes at 0x10000100a (no symbol)"},
      {made.image, [](Pieces& pieces) { pieces[0].trampoline.code[21] = std::byte{0x8A}; },
       "entry 0 at 0x100001001 (no symbol): its trampoline cannot be used with a TLS expansion slot"},
      {made.image, [](Pieces& pieces) { pieces[1].bytes = pieces[1].bytes.first(4); },
       "entry 1 at 0x10000100a (no symbol): its lengths make no sense"},
      {other.image, [](Pieces&) {},
       "entry 0 at 0x100001001 (no symbol): the image has 90 65 48 8b 04 25 00 01 00, expected 65 48 8b 04 25"},
  };
  for (const auto& c : cases) {
    ImagePatch changed = *patch;
    c.change(changed.pieces);
    const auto list = patch_list(made.image, changed);
    const auto check = check_patch_list(c.image, std::span(list).first(list.size() - gs_patch_trailer_size));
    REQUIRE(check.has_value());
    const std::string first = check->problems.empty() ? "(none)" : check->problems[0];
    CHECK_EQ(first.substr(0, c.problems.size()), c.problems);
  }
  CHECK_EQ(check_patch_list(made.image, bytes_of("01 02")).error().text, "the patch list is not a gs patch file");
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
  CHECK(std::ranges::equal(*once, test::Bytes(library).append(longer_list)));
  CHECK((*with_patch_list(*once, empty_list) == *with_patch_list(library, empty_list)));

  auto of_another = library;
  of_another[0x78] = std::byte{'x'};
  const auto ending_in = [&](std::uint64_t size) { return test::Bytes(library).u64(0).u64(size).text("VLMGSPEM"); };
  const std::pair<std::vector<std::byte>, std::string_view> refused[] = {
      {of_another, "it has no section .shims"},
      {bytes_of("7f 45 4c 46"), "it does not begin with \"MZ\", so it is no Windows library"},
      {ending_in(0), "it ends in a damaged patch list; build the library anew"},
      {ending_in(255), "it ends in a damaged patch list"},  // more than the file has
  };
  for (const auto& [file, fault] : refused) CHECK(with_patch_list(file, empty_list).error().text.starts_with(fault));
}
