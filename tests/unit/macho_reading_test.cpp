// Images that are read: the slice of a file and its load commands; opcode streams over memory of the test; names and
// addresses. What is recorded or changed, what is refused before anything is written and how it is named. The streams
// are written as bytes: REBASE_OPCODE_ and BIND_OPCODE_ in macho/format.h name them.
#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "macho/commands.h"
#include "macho/fixups.h"
#include "macho/queries.h"
#include "macho/symbol_index.h"
#include "support/fake_image.h"
#include "support/good_image.h"

using namespace vlm;
using namespace vlm::test;
using namespace std::string_literals;

// ---- Slices and load commands ---------------------------------------------------------------------------------------

namespace {

/// "offset+size" of the chosen slice, or the fault.
std::string slice_of(const Bytes& file) {
  const auto head = std::span(file).first(std::min<std::size_t>(file.size(), 64));
  const auto slice = macho_choose_slice("a.dylib", head, file.size());
  if (!slice) return (slice.error().damaged ? "damaged " : "foreign ") + slice.error().text;
  return std::to_string(slice->offset) + "+" + std::to_string(slice->size);
}

}  // namespace

TEST_CASE("the last x86_64 slice of a universal file is taken, and a thin file whole") {
  const Bytes one(100, std::byte{1}), two(200, std::byte{2});
  Bytes beyond = build_universal({{CPU_TYPE_X86_64, one}});
  beyond.pop_back();
  CHECK_EQ(slice_of(one), "0+100");
  CHECK_EQ(slice_of(build_universal({{CPU_TYPE_X86_64, one}, {CPU_TYPE_X86_64, two}})), "8192+200");
  CHECK_EQ(slice_of(build_universal({{0x0100000C, one}})), "foreign [macho] a.dylib has no x86_64 slice");
  const std::string damaged = "damaged a.dylib is damaged or not supported: ";
  CHECK_EQ(slice_of(beyond), damaged + "the x86_64 slice takes 100 bytes at 4096 of a file of 4195");
  CHECK_EQ(slice_of(Bytes().big32(FAT_MAGIC).big32(0xFFFFFFFF).pad_to(64)),
           damaged + "a universal header of 4294967295 slices does not fit a file of 64 bytes");
}

TEST_CASE("load commands that do not fit the file, their segment or the record are refused and named") {
  const auto segment_at = [](std::uint64_t fileoff, std::uint64_t filesize, std::uint64_t vmsize) {
    return segment_command({"__MORE", data_vmaddr, vmsize, 0, {}, {}}, fileoff, filesize);
  };
  const struct {
    std::string fault;
    Bytes command;
    std::size_t count = 1;  // how many of it
  } cases[] = {
      {"has cmdsize 0,", Bytes().u32(0x99).u32(0)},
      {"(0x19) at offset 896: cmdsize is 64, at least 72 expected", Bytes().u32(LC_SEGMENT_64).u32(64).pad_to(64)},
      {"an install name of 1024 characters", dylib_command(LC_LOAD_DYLIB, std::string(1024, 'x'))},
      {"more than 64 dependent libraries", dylib_command(LC_LOAD_DYLIB, "x"), 62},
      {"more than 16 segments", segment_at(0, 0, 0), 13},
      {"segment __MORE has filesize 0x1001, more than its vmsize 0x1000", segment_at(0, 0x1001, 0x1000)},
      {"segment __MORE takes 0x1000 bytes at 0x3ff8 of a file of", segment_at(0x3FF8, 0x1000, 0x1000)},
      {"segment __MORE (0xfffffffffffff000 bytes at 0x100002000) wraps", segment_at(0, 0, ~std::uint64_t{0xFFF})},
      {"the symbol table takes 0xffffffff0 bytes at 0x20 of a file of",
       Bytes().put(SymtabCommand{LC_SYMTAB, 24, 0x20, 0xFFFFFFFF, 0, 0})},
  };
  for (const auto& c : cases) {
    ImageDraft draft = good_draft();
    draft.more_commands.assign(c.count, c.command);
    CHECK(FakeImage(draft).fault.contains(c.fault));
    draft.more_commands.pop_back();
    CHECK_EQ(FakeImage(draft).fault, "");
  }
}

// ---- Opcode streams -------------------------------------------------------------------------------------------------

namespace {

/// Where __DATA lies in the image; the streams below work there.
constexpr std::uint64_t data_offset = data_vmaddr - text_vmaddr;
using Words = std::vector<std::pair<std::uint64_t, std::uint64_t>>;  // offset in __DATA, contents

const std::string minus_8 = "\xF8\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01", minus_24 = "\xE8" + minus_8.substr(1);
const std::string huge = "\x80\x80\x80\x80\x80\x80\x80\x80\x10";  // 2^60

std::string symbol(const std::string& name, const char* opcode = "\x40") { return opcode + name + '\0'; }
const std::string shimmed = symbol("_shimmed"), other = symbol("_other"), at_0 = "\x72\0"s;

/// The 8-byte words that differ from what the file holds there.
Words changed_words(const FakeImage& fake) {
  const FakeImage before(fake.file);
  Words words;
  for (std::uint64_t at = 0; at + 8 <= fake.memory.size(); at += 8) {
    if (fake.pointer_at(at) != before.pointer_at(at)) words.push_back({at - data_offset, fake.pointer_at(at)});
  }
  return words;
}

// Imports are answered with addresses that tell what was asked for; each question is kept.
std::vector<std::string> questions;

const void* lookup(const char* library, const char* name) {
  questions.push_back(std::string(library) + ":" + name);
  return reinterpret_cast<const void*>(name == "_shimmed"s || name == "_exported"s ? 0x5000 : 0);
}

const void* make_missing(const char* library, const char* name) {
  questions.push_back("missing " + std::string(library) + ":" + name);
  return reinterpret_cast<const void*>(0x6000);
}

/// One stream over an image of the test; the changed words, or what is wrong with it.
struct Patched {
  Words words;
  std::string fault;
};
Patched patch(Bytes ImageDraft::* stream, const std::string& bytes, std::span<MachImage* const> images = {},
              const Bytes& exports = {}) {
  ImageDraft draft = good_draft();
  draft.*stream = Bytes().text(bytes);
  if (!exports.empty()) draft.exports = exports;
  FakeImage fake(draft, "/games/libOther");  // would match its own import: an image is not its own library
  questions.clear();
  std::vector<MachImage*> all{fake.image.get()};
  all.insert(all.end(), images.begin(), images.end());
  const auto kind = stream == &ImageDraft::bind ? BindStream::binds : BindStream::lazy_binds;
  const auto patched = stream == &ImageDraft::rebase
                           ? macho_rebase(*fake.image, fake.memory)
                           : macho_bind(*fake.image, fake.memory, kind, {all, lookup, make_missing});
  const Words words = changed_words(fake);
  if (patched) CHECK_EQ(*patched, words.size());
  return {words, patched ? "" : patched.error().text};
}

}  // namespace

TEST_CASE("opcodes add the slide to, or store a symbol's address plus addend in, exactly the pointers they name") {
  constexpr auto rebase = &ImageDraft::rebase, bind = &ImageDraft::bind, lazy_bind = &ImageDraft::lazy_bind;
  const std::string start = shimmed + at_0, minus_0x300 = "\x60\x80\x7A";
  const struct {
    Bytes ImageDraft::* stream;
    std::string bytes;
    Words words;  // of a rebase: offset, what the file holds there
  } cases[] = {
      {rebase, "\x22\x08\x53", {{8, 1}, {16, 2}, {24, 3}}},
      {rebase, "\x22\0\x60\x02\x51"s, {{0, 0}, {8, 1}, {16, 2}}},
      {rebase, "\x22\0\x30\x88\x01\x4F\x51"s, {{0x100, 0x20}}},
      {rebase, "\x22\0\x70\x10\x51"s, {{0, 0}, {0x18, 3}}},
      {rebase, "\x22\0\x80\x03\x08\x51"s, {{0, 0}, {16, 2}, {32, 4}, {48, 6}}},
      {rebase, "\x22\x20\x80\x03" + minus_24, {{0, 0}, {16, 2}, {32, 4}}},  // backwards, down to the segment's start
      {rebase, "\x13\x22\xF8\x5F\x51\0\xFF"s, {{0x2FF8, 0}}},               // up to its end; DONE
      {bind, start + "\x90\x90\0\x90"s, {{0, 0x5000}, {8, 0x5000}}},
      {bind, start + "\xA0\x08\x90", {{0, 0x5000}, {16, 0x5000}}},
      {bind, start + "\xB2\x90", {{0, 0x5000}, {24, 0x5000}}},
      {bind, start + "\xC0\x03\x08\x90", {{0, 0x5000}, {16, 0x5000}, {32, 0x5000}, {48, 0x5000}}},
      {bind, start + "\x80\x40\x90", {{0x40, 0x5000}}},
      {bind, start + minus_0x300 + "\x90" + other + "\x90", {{0, 0x4D00}, {8, 0x5D00}}},  // an addend stays
      {bind, start + symbol("_other", "\x41") + "\x90" + minus_0x300 + "\x90", {{0, 0}, {8, ~0x2FFull}}},  // weak
      {lazy_bind, start + "\x90\0"s + other + "\x90", {{0, 0x5000}, {8, 0x6000}}},  // DONE ends an entry only
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    Words expected = c.words;
    for (auto& [offset, word] : expected) {
      const std::uint64_t in_file = offset < 0x1000 ? text_vmaddr + 0x1000 + word : 0;
      if (c.stream == rebase) word = in_file + FakeImage::base - text_vmaddr;
    }
    CHECK((patch(c.stream, c.bytes).words == expected));
  }
}

TEST_CASE("imports are looked for in the image itself, in images that the library's name matches, in the shims") {
  // Exports "_exported" at its base + 0x1234; its file name occurs in the second install name below.
  ImageDraft exporting = good_draft();
  exporting.exports = export_trie({{"_exported", 0x1234}});
  const FakeImage matching(exporting, "C:/Game/libOther"), stranger(exporting, "/libStranger.dylib");
  const FakeImage unnamed(exporting, "libOther");  // no '/', so nothing imports from it
  MachImage* const images[] = {unnamed.image.get(), stranger.image.get(), matching.image.get()};
  const struct {
    std::string ordinal, name;
    std::uint64_t value;
    std::vector<std::string> questions;
  } cases[] = {
      {"\x30", "_exported", FakeImage::base + 0x77, {}},
      {"\x30", "_other", 0x6000, {"self:_other", "missing self:_other"}},
      {"\x20\x02", "_exported", FakeImage::base + 0x1234, {}},
      {"\x20\x02", "_shimmed", 0x5000, {"libOther.dylib:_shimmed"}},
      {"\x11", "_exported", 0x5000, {"libSystem.B.dylib:_exported"}},
      {"\x20\xFF\xFF\xFF\xFF\x0F", "_exported", 0x5000, {"flat:_exported"}},  // negative in 32 bits
      {"\x3E", "_other", 0x6000, {"flat:_other", "missing flat:_other"}},
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    const std::string stream = c.ordinal + symbol(c.name) + at_0 + "\x90";
    const Patched patched = patch(&ImageDraft::bind, stream, images, export_trie({{"_exported", 0x77}}));
    CHECK((patched.words == Words{{0, c.value}}));
    CHECK_EQ(questions, c.questions);
  }
}

TEST_CASE("streams that make no sense, leave their segment or the image's room are refused and write nothing") {
  constexpr auto rebase = &ImageDraft::rebase, bind = &ImageDraft::bind;
  const struct {
    Bytes ImageDraft::* stream;
    std::string bytes, fault;
  } cases[] = {
      {rebase, "\x24\0\x51"s, "bad segment index 4"},
      {rebase, "\x22\0\xFF"s, "unknown rebase opcode 0xf0"},
      {rebase, "\x22\xF0\x5F\x53", "3 pointers from 0x2ff0, 0x8 bytes apart"},
      {rebase, "\x22\0\x80\x11\xF8"s + std::string(7, '\xFF') + "\x0F", "not inside segment 2"},  // 17, 2^60 apart
      {rebase, "\x22\0\x80\x81\x18"s + minus_8, "has room for"},                                  // 0xC01 of one place
      {rebase, "\x20\0\x51"s, "(__PAGEZERO, 0x100000000 bytes, not mapped)"},
      {rebase, "\x23\x80\x02\x80\x03" + minus_24,
       "of segment __LINKEDIT, 0xfffffffffffffff0 bytes apart, lie in the image"},
      {bind, shimmed + at_0 + "\xD1", "unknown bind opcode 0xd0"},
      {bind, at_0 + "\x90", "a bind without a symbol name"},
      {&ImageDraft::lazy_bind, shimmed + at_0 + "\xC0" + huge + minus_8, "has room for"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.fault);
    const Patched patched = patch(c.stream, c.bytes);
    CHECK(patched.fault.contains(c.fault));
    CHECK((patched.words.empty() && questions.empty()));
  }
}

// ---- Names and addresses --------------------------------------------------------------------------------------------

namespace {

constexpr std::uint64_t base = FakeImage::base;

}  // namespace

TEST_CASE("exports are found by their whole name only, as dyld walks the trie: the first edge that fits is taken") {
  const Bytes trie = export_trie({{"_ab", 0x100},
                                  {"_abd", 0x300, EXPORT_SYMBOL_FLAGS_KIND_ABSOLUTE},
                                  {"_reexported", 3, EXPORT_SYMBOL_FLAGS_REEXPORT}});
  const std::string terminal = "\2\0\x22\0"s;
  const struct {
    std::string name;
    std::uint64_t address;
    Bytes trie;
  } cases[] = {
      {"_ab", base + 0x100, trie},
      {"_abd", 0x300, trie},
      {"_a", 0, trie},
      {"_abdc", 0, trie},
      {"_reexported", 0, trie},
      {"_name", 0, Bytes().text("\0\2_\0\xC_name\0\xE\0\0"s + terminal)},  // the first edge that fits leads nowhere
      {"_name", base + 0x22, Bytes().text("\0\1\0\4\0\1_name\0\xD"s + terminal)},  // an empty edge is passed through
      {"_name", 0, Bytes().text("\0\1\0\0"s)},                                     // a root that is its own child
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    ImageDraft draft = good_draft();
    draft.exports = c.trie;
    CHECK_EQ(macho_find_export(*FakeImage(draft).image, c.name), c.address);
  }
}

TEST_CASE("the symbol of an address is the nearest one below it") {
  const FakeImage fake(good_draft());
  const auto symbol_at = [&](std::uint64_t address) {
    std::uint64_t distance = 7;
    const char* const name = macho_symbol_for_address(*fake.image, address, &distance);
    return (name != nullptr ? name : "none") + "+"s + std::to_string(distance);
  };
  for (const bool indexed : {false, true}) {
    CAPTURE(indexed);
    if (indexed) macho_index_symbols(*fake.image);
    CHECK_EQ(symbol_at(base + 0x1000), "_game_start+0");
    CHECK_EQ(symbol_at(base + 0x10FF), "_game_start+255");
    CHECK_EQ(symbol_at(base + 0x1180), "_helper+128");
    for (const std::uint64_t none : {base - 1, base, base + 0xFFF, base + fake.image->extent(), ~std::uint64_t{0}}) {
      CHECK_EQ(symbol_at(none), "none+7");
    }
  }
}

TEST_CASE("symbols are found by name with or without the underscore, local ones included") {
  const FakeImage fake(good_draft());
  const auto symbol_named = [&](const char* name) { return macho_symbol_by_name(*fake.image, name); };
  CHECK((symbol_named("_game_start") == base + 0x1000 && symbol_named("game_start") == base + 0x1000));
  CHECK_EQ(symbol_named("_helper_alias"), base + 0x1100);
  for (const char* name : {"helper_", "_debug", "_absolute", "_far", ""}) CHECK_EQ(symbol_named(name), 0);
}
