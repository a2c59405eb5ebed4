// The opcode streams over memory of the test: which pointers change to what, which symbols are asked for, what is
// refused before anything is written.
#include "macho/fixups.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "support/fake_image.h"
#include "support/good_image.h"

using namespace vlm;
using namespace vlm::test;

namespace {

constexpr std::uint64_t huge = std::uint64_t{1} << 60;
constexpr std::uint64_t minus(std::uint64_t value) { return ~value + 1; }

/// Where __DATA lies in the image; the streams below work there.
constexpr std::uint64_t data_offset = data_vmaddr - text_vmaddr;

Bytes operator+(Bytes first, const Bytes& second) { return first.append(second); }

Bytes at(std::uint64_t offset, int segment = data_segment) {
  return Bytes().u8(REBASE_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | segment).uleb(offset);
}
Bytes times(unsigned count) { return Bytes().u8(REBASE_OPCODE_DO_REBASE_IMM_TIMES | count); }
Bytes many(std::uint64_t count) { return Bytes().u8(REBASE_OPCODE_DO_REBASE_ULEB_TIMES).uleb(count); }
Bytes skipping(std::uint64_t count, std::uint64_t skip) {
  return Bytes().u8(REBASE_OPCODE_DO_REBASE_ULEB_TIMES_SKIPPING_ULEB).uleb(count).uleb(skip);
}
Bytes move_by(std::uint64_t distance) { return Bytes().u8(REBASE_OPCODE_ADD_ADDR_ULEB).uleb(distance); }

Bytes bind_at(std::uint64_t offset, int segment = data_segment) {
  return Bytes().u8(BIND_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | segment).uleb(offset);
}
Bytes symbol(const char* name, unsigned flags = 0) {
  return Bytes().u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM | flags).c_string(name);
}
Bytes bind_skipping(std::uint64_t count, std::uint64_t skip) {
  return Bytes().u8(BIND_OPCODE_DO_BIND_ULEB_TIMES_SKIPPING_ULEB).uleb(count).uleb(skip);
}
const Bytes do_bind = Bytes().u8(BIND_OPCODE_DO_BIND);

/// Offsets in __DATA of the 8-byte words that differ from what the file holds there.
std::vector<std::uint64_t> changed_words(const FakeImage& fake) {
  const FakeImage before(fake.file);
  std::vector<std::uint64_t> offsets;
  for (std::uint64_t at = 0; at + 8 <= fake.memory.size(); at += 8) {
    if (fake.pointer_at(at) != before.pointer_at(at)) offsets.push_back(at - data_offset);
  }
  return offsets;
}

// Imports are answered with addresses that tell what was asked for; each question is kept.
std::vector<std::string> questions;

const void* lookup(const char* library, const char* name) {
  questions.push_back(std::string(library) + ":" + name);
  if (std::string_view(name) == "_shimmed" || std::string_view(name) == "_exported") {
    return reinterpret_cast<const void*>(0x5000);
  }
  return nullptr;
}

const void* make_missing(const char* library, const char* name) {
  questions.push_back("missing " + std::string(library) + ":" + name);
  return reinterpret_cast<const void*>(0x6000);
}

Result<std::uint64_t> bind(FakeImage& fake, bool lazy, std::span<MachImage* const> images = {}) {
  questions.clear();
  return macho_bind(*fake.image, fake.memory, lazy ? BindStream::lazy_binds : BindStream::binds,
                    {images, lookup, make_missing});
}

}  // namespace

TEST_CASE("rebase opcodes add the slide to exactly the pointers they name") {
  using Words = std::vector<std::uint64_t>;
  const struct {
    std::string what;
    Bytes stream;
    Words words;
  } cases[] = {
      {"empty stream", {}, {}},
      {"times immediate", at(8) + times(3), {8, 16, 24}},
      {"times zero, at a bad place", at(0, 15) + times(0), {}},
      {"times ULEB, then on from there", at(0) + many(2) + times(1), {0, 8, 16}},
      {"add ULEB", at(0) + move_by(0x88) + times(1), {0x88}},
      {"add scaled", at(0).u8(REBASE_OPCODE_ADD_ADDR_IMM_SCALED | 15) + times(1), {120}},
      {"add after each", at(0).u8(REBASE_OPCODE_DO_REBASE_ADD_ADDR_ULEB).uleb(0x10) + times(1), {0, 0x18}},
      {"skipping", at(0) + skipping(3, 8) + times(1), {0, 16, 32, 48}},
      {"backwards", at(32) + skipping(3, minus(24)), {0, 16, 32}},
      {"a step back between runs", at(0x100) + move_by(minus(0xF8)) + times(1), {8}},
      {"the last pointer of the segment", at(0x2FF8) + times(1), {0x2FF8}},
      {"a run up to the segment's end", at(0x2FF0) + times(2), {0x2FF0, 0x2FF8}},
      {"a run down to the segment's start", at(0x10) + skipping(2, minus(24)), {0, 0x10}},
      {"no DONE at the end, type ignored", Bytes().u8(REBASE_OPCODE_SET_TYPE_IMM | 3) + at(0) + times(1), {0}},
      {"nothing behind DONE counts", at(0) + times(1) + Bytes().u8(0).u8(0xFF), {0}},
      {"a ULEB cut by the end ends there", at(0).u8(REBASE_OPCODE_DO_REBASE_ULEB_TIMES).u8(0x82), {0, 8}},
      {"no ULEB at all is zero", at(0).u8(REBASE_OPCODE_DO_REBASE_ULEB_TIMES), {}},
      {"a ULEB of eleven bytes: its last group is shifted modulo 64",
       Bytes().u8(REBASE_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | data_segment) + Bytes(10, std::byte{0x80}) +
           Bytes().u8(1) + times(1),
       {64}},
  };
  for (const auto& c : cases) {
    CAPTURE(c.what);
    ImageDraft draft = good_draft();
    draft.rebase = c.stream;
    FakeImage fake(draft);
    const auto patched = macho_rebase(*fake.image, fake.memory);
    REQUIRE(patched.has_value());
    CHECK_EQ(*patched, c.words.size());
    CHECK_EQ(changed_words(fake), c.words);
    for (const std::uint64_t word : c.words) {
      const std::uint64_t in_file = word < 0x1000 ? text_vmaddr + 0x1000 + word / 8 : 0;
      CHECK_EQ(fake.pointer_at(data_offset + word), in_file + static_cast<std::uint64_t>(fake.image->slide));
    }
  }
}

TEST_CASE("a rebase run that leaves its segment, or is more than the image holds, is refused and writes nothing") {
  const struct {
    Bytes stream;
    std::string fault;
  } cases[] = {
      {at(0, 4) + times(1), "bad segment index 4"},
      {at(0, 15).u8(REBASE_OPCODE_DO_REBASE_ADD_ADDR_ULEB).uleb(0), "bad segment index 15"},
      {at(0).u8(0x9A), "unknown rebase opcode 0x90"},
      {at(0).u8(0xFF), "unknown rebase opcode 0xf0"},
      {at(0x2FF9) + times(1), "are not inside segment 2 (__DATA, 0x3000 bytes)"},
      {at(0x2FF0) + times(3), "3 pointers from 0x2ff0, 0x8 bytes apart"},
      {at(minus(8)) + times(2), "2 pointers from 0xfffffffffffffff8"},
      {at(0) + many(huge), "1152921504606846976 pointers"},
      {at(0) + skipping(huge, huge - 8), "not inside segment 2"},
      {at(0) + skipping(17, huge - 8), "not inside segment 2"},
      {at(16) + skipping(4, minus(16)), "not inside segment 2"},
      {at(0) + skipping(0xC01, minus(8)), "has room for"},
      {at(0, 0) + times(1), "(__PAGEZERO, 0x100000000 bytes, not mapped)"},
      {at(0x100, 3) + skipping(3, minus(24)),
       "of segment __LINKEDIT, 0xfffffffffffffff0 bytes apart, lie in the image"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.fault);
    ImageDraft draft = good_draft();
    draft.rebase = c.stream;
    FakeImage fake(draft);
    const auto patched = macho_rebase(*fake.image, fake.memory);
    REQUIRE_FALSE(patched.has_value());
    CHECK(patched.error().text.find(c.fault) != std::string::npos);
    CHECK(changed_words(fake).empty());
  }
}

TEST_CASE("bind opcodes store the symbol's address plus addend in exactly the pointers they name") {
  struct Word {
    std::uint64_t offset, value;
  };
  const Bytes start = symbol("_shimmed") + bind_at(0);
  const struct {
    std::string what;
    bool lazy;
    Bytes stream;
    std::vector<Word> words;
  } cases[] = {
      {"empty stream", false, {}, {}},
      {"plain", false, start + do_bind + do_bind, {{0, 0x5000}, {8, 0x5000}}},
      {"add ULEB",
       false,
       start + Bytes().u8(BIND_OPCODE_DO_BIND_ADD_ADDR_ULEB).uleb(8) + do_bind,
       {{0, 0x5000}, {16, 0x5000}}},
      {"add scaled",
       false,
       start + Bytes().u8(BIND_OPCODE_DO_BIND_ADD_ADDR_IMM_SCALED | 2) + do_bind,
       {{0, 0x5000}, {24, 0x5000}}},
      {"skipping",
       false,
       start + bind_skipping(3, 8) + do_bind,
       {{0, 0x5000}, {16, 0x5000}, {32, 0x5000}, {48, 0x5000}}},
      {"skipping, no times", false, start + bind_skipping(0, 8), {}},
      {"moving first", false, start + Bytes().u8(BIND_OPCODE_ADD_ADDR_ULEB).uleb(0x40) + do_bind, {{0x40, 0x5000}}},
      {"a negative addend stays for later symbols",
       false,
       start + Bytes().u8(BIND_OPCODE_SET_ADDEND_SLEB).sleb(-0x300) + do_bind + symbol("_other") + do_bind,
       {{0, 0x4D00}, {8, 0x5D00}}},
      {"a weak import without an implementation",
       false,
       start + symbol("_other", BIND_SYMBOL_FLAGS_WEAK_IMPORT) + do_bind +
           Bytes().u8(BIND_OPCODE_SET_ADDEND_SLEB).sleb(64) + do_bind,
       {{0, 0}, {8, 64}}},
      {"a weak import with one",
       false,
       start + symbol("_shimmed", BIND_SYMBOL_FLAGS_WEAK_IMPORT) + do_bind,
       {{0, 0x5000}}},
      {"DONE ends the stream", false, start + do_bind + Bytes().u8(BIND_OPCODE_DONE) + do_bind, {{0, 0x5000}}},
      {"DONE ends only an entry of the lazy stream",
       true,
       start + do_bind + Bytes().u8(BIND_OPCODE_DONE) + symbol("_other") + do_bind + Bytes().u8(BIND_OPCODE_DONE),
       {{0, 0x5000}, {8, 0x6000}}},
  };
  for (const auto& c : cases) {
    CAPTURE(c.what);
    ImageDraft draft = good_draft();
    (c.lazy ? draft.lazy_bind : draft.bind) = c.stream;
    FakeImage fake(draft);
    const auto patched = bind(fake, c.lazy);
    REQUIRE(patched.has_value());
    CHECK_EQ(*patched, c.words.size());
    CHECK_EQ(changed_words(fake).size(), c.words.size());
    for (const Word& word : c.words) CHECK_EQ(fake.pointer_at(data_offset + word.offset), word.value);
  }
}

TEST_CASE("imports are looked for in the image itself, in images that the library's name matches, in the shims") {
  // Exports "_exported" at its base + 0x1234; its file name occurs in the second install name below.
  ImageDraft exporting = good_draft();
  exporting.exports = export_trie({{"_exported", 0x1234}});
  const FakeImage other(exporting, "C:/Game/libOther");
  const FakeImage unnamed(exporting, "libOther");  // no '/', so nothing imports from it
  const FakeImage stranger(exporting, "/libStranger.dylib");

  struct Case {
    std::string what;
    Bytes ordinal;
    std::string name;
    std::uint64_t value;
    std::vector<std::string> questions;
  };
  const auto special = [](unsigned immediate) { return Bytes().u8(BIND_OPCODE_SET_DYLIB_SPECIAL_IMM | immediate); };
  const auto library = [](std::uint64_t ordinal) {
    return Bytes().u8(BIND_OPCODE_SET_DYLIB_ORDINAL_ULEB).uleb(ordinal);
  };
  const Case cases[] = {
      {"own export before a shim", special(0), "_exported", FakeImage::base + 0x77, {}},
      {"no ordinal yet is the own image", {}, "_exported", FakeImage::base + 0x77, {}},
      {"own symbol that is not exported", special(0), "_shimmed", 0x5000, {"self:_shimmed"}},
      {"own symbol nowhere", special(0), "_other", 0x6000, {"self:_other", "missing self:_other"}},
      {"a library that matches no image",
       Bytes().u8(BIND_OPCODE_SET_DYLIB_ORDINAL_IMM | 1),
       "_exported",
       0x5000,
       {"libSystem.B.dylib:_exported"}},
      {"a library that matches an image", library(2), "_exported", FakeImage::base + 0x1234, {}},
      {"an image that does not export it", library(2), "_shimmed", 0x5000, {"libOther.dylib:_shimmed"}},
      {"a library without a folder", library(3), "_shimmed", 0x5000, {"Plain:_shimmed"}},
      {"an ordinal beyond the libraries", library(4), "_exported", 0x5000, {"flat:_exported"}},
      {"an ordinal that turns negative in 32 bits", library(0xFFFFFFFF), "_exported", 0x5000, {"flat:_exported"}},
      {"main executable", special(0xF), "_exported", 0x5000, {"flat:_exported"}},
      {"flat look-up", special(0xE), "_other", 0x6000, {"flat:_other", "missing flat:_other"}},
      {"weak look-up", special(0xD), "_shimmed", 0x5000, {"flat:_shimmed"}},
  };
  for (const Case& c : cases) {
    CAPTURE(c.what);
    ImageDraft draft = good_draft();
    draft.exports = export_trie({{"_exported", 0x77}});
    draft.bind = c.ordinal + symbol(c.name.c_str()) + bind_at(0) + do_bind;
    FakeImage fake(draft, "/games/libOther");  // would match its own import: an image is not its own library
    MachImage* const images[] = {fake.image.get(), unnamed.image.get(), stranger.image.get(), other.image.get()};
    REQUIRE(bind(fake, false, images).has_value());
    CHECK_EQ(fake.pointer_at(data_offset), c.value);
    CHECK_EQ(questions, c.questions);
  }
}

TEST_CASE("binds in a row resolve their symbol once; another ordinal or another spelling of it asks again") {
  ImageDraft draft = good_draft();
  const auto library = [](unsigned ordinal) { return Bytes().u8(BIND_OPCODE_SET_DYLIB_ORDINAL_IMM | ordinal); };
  draft.bind = symbol("_shimmed") + bind_at(0) + library(1) + do_bind + do_bind + library(1) + bind_skipping(100, 0) +
               library(2) + do_bind + symbol("_shimmed") + do_bind;
  FakeImage fake(draft);
  REQUIRE_EQ(bind(fake, false).value(), 104);
  CHECK_EQ(questions, std::vector<std::string>{"libSystem.B.dylib:_shimmed", "libOther.dylib:_shimmed",
                                               "libOther.dylib:_shimmed"});
}

TEST_CASE("a bind stream that makes no sense is refused; the run at fault writes nothing and asks for nothing") {
  const struct {
    Bytes stream;
    std::string fault;
  } cases[] = {
      {symbol("_s") + bind_at(0, 4) + do_bind, "bad segment index 4"},
      {symbol("_s") + bind_at(0).u8(0xD1), "unknown bind opcode 0xd0"},
      {Bytes().u8(0xEF), "unknown bind opcode 0xe0"},
      {bind_at(0) + do_bind, "a bind without a symbol name"},
      {Bytes().u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).text("_s"), "the symbol name has no end"},
      {symbol("_s") + bind_at(0, 0) + do_bind, "(__PAGEZERO, 0x100000000 bytes, not mapped"},
      {symbol("_s") + bind_at(0x2FF9) + do_bind, "are not inside segment 2"},
      {symbol("_s") + bind_at(0) + bind_skipping(huge, 0), "1152921504606846976 pointers"},
      {symbol("_s") + bind_at(0) + bind_skipping(huge, minus(8)), "has room for"},
  };
  for (const bool lazy : {false, true}) {
    for (const auto& c : cases) {
      CAPTURE(c.fault);
      ImageDraft draft = good_draft();
      (lazy ? draft.lazy_bind : draft.bind) = c.stream;
      FakeImage fake(draft);
      const auto patched = bind(fake, lazy);
      REQUIRE_FALSE(patched.has_value());
      CAPTURE(patched.error().text);
      CHECK(patched.error().text.find(c.fault) != std::string::npos);
      CHECK(changed_words(fake).empty());
      CHECK(questions.empty());
    }
  }
}

TEST_CASE("a stream that keeps start-up busy with look-ups is given up") {
  // One node with an edge of a mebibyte that is read to its end by every look-up: 8192 of them would read 8 GiB.
  ImageDraft draft = good_draft();
  draft.exports = Bytes().u8(0).u8(1).append(Bytes(1 << 20, std::byte{'x'})).u8(0).uleb(0);
  draft.bind = symbol("_s") + bind_at(0);
  for (int i = 0; i < 8192; ++i) {
    draft.bind.append(symbol("_s")).u8(BIND_OPCODE_DO_BIND_ADD_ADDR_ULEB).uleb(minus(8));
  }
  FakeImage fake(draft);
  const auto patched = bind(fake, false);
  REQUIRE_FALSE(patched.has_value());
  CHECK(patched.error().text.ends_with("looking up its symbols takes too long"));
}
