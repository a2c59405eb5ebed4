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
  const struct {
    Bytes stream;
    std::vector<std::uint64_t> words;
  } cases[] = {
      {at(8) + times(3), {8, 16, 24}},
      {at(0) + many(2) + times(1), {0, 8, 16}},
      {at(0) + move_by(0x88) + times(1), {0x88}},
      {at(0).u8(REBASE_OPCODE_ADD_ADDR_IMM_SCALED | 15) + times(1), {120}},
      {at(0).u8(REBASE_OPCODE_DO_REBASE_ADD_ADDR_ULEB).uleb(0x10) + times(1), {0, 0x18}},
      {at(0) + skipping(3, 8) + times(1), {0, 16, 32, 48}},
      {at(32) + skipping(3, minus(24)), {0, 16, 32}},  // backwards
      {at(0x2FF0) + times(2), {0x2FF0, 0x2FF8}},       // up to the segment's end
      {at(0x10) + skipping(2, minus(24)), {0, 0x10}},  // down to its start
      {Bytes().u8(REBASE_OPCODE_SET_TYPE_IMM | 3) + at(0) + times(1) + Bytes().u8(0).u8(0xFF), {0}},  // DONE
      {at(0).u8(REBASE_OPCODE_DO_REBASE_ULEB_TIMES).u8(0x82), {0, 8}},  // a ULEB cut by the end ends there
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    ImageDraft draft = good_draft();
    draft.rebase = c.stream;
    FakeImage fake(draft);
    CHECK_EQ(macho_rebase(*fake.image, fake.memory).value(), c.words.size());
    CHECK_EQ(changed_words(fake), c.words);
    for (const std::uint64_t word : c.words) {
      const std::uint64_t in_file = word < 0x1000 ? text_vmaddr + 0x1000 + word / 8 : 0;
      CHECK_EQ(fake.pointer_at(data_offset + word), in_file + static_cast<std::uint64_t>(fake.image->slide));
    }
  }
}

TEST_CASE("bind opcodes store the symbol's address plus addend in exactly the pointers they name") {
  using Words = std::vector<std::pair<std::uint64_t, std::uint64_t>>;  // where, what
  const auto code = [](unsigned opcode) { return Bytes().u8(opcode); };
  const Bytes start = symbol("_shimmed") + bind_at(0), done = code(BIND_OPCODE_DONE);
  const Bytes minus_0x300 = code(BIND_OPCODE_SET_ADDEND_SLEB).sleb(-0x300);
  const Bytes weak = symbol("_other", BIND_SYMBOL_FLAGS_WEAK_IMPORT), other = symbol("_other");
  // clang-format off
  const struct {
    Bytes stream;
    Words words;
    bool lazy = false;
  } cases[] = {
      {start + do_bind + do_bind, {{0, 0x5000}, {8, 0x5000}}},
      {start + code(BIND_OPCODE_DO_BIND_ADD_ADDR_ULEB).uleb(8) + do_bind, {{0, 0x5000}, {16, 0x5000}}},
      {start + code(BIND_OPCODE_DO_BIND_ADD_ADDR_IMM_SCALED | 2) + do_bind, {{0, 0x5000}, {24, 0x5000}}},
      {start + bind_skipping(3, 8) + do_bind, {{0, 0x5000}, {16, 0x5000}, {32, 0x5000}, {48, 0x5000}}},
      {start + code(BIND_OPCODE_ADD_ADDR_ULEB).uleb(0x40) + do_bind, {{0x40, 0x5000}}},
      {start + minus_0x300 + do_bind + other + do_bind, {{0, 0x4D00}, {8, 0x5D00}}},  // an addend stays
      {start + weak + do_bind + minus_0x300 + do_bind, {{0, 0}, {8, minus(0x300)}}},
      {start + do_bind + done + do_bind, {{0, 0x5000}}},
      {start + do_bind + done + other + do_bind + done, {{0, 0x5000}, {8, 0x6000}}, true},  // ends an entry only
  };
  // clang-format on
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    ImageDraft draft = good_draft();
    (c.lazy ? draft.lazy_bind : draft.bind) = c.stream;
    FakeImage fake(draft);
    CHECK_EQ(bind(fake, c.lazy).value(), c.words.size());
    CHECK_EQ(changed_words(fake).size(), c.words.size());
    for (const auto& [offset, value] : c.words) CHECK_EQ(fake.pointer_at(data_offset + offset), value);
  }
}

TEST_CASE("imports are looked for in the image itself, in images that the library's name matches, in the shims") {
  // Exports "_exported" at its base + 0x1234; its file name occurs in the second install name below.
  ImageDraft exporting = good_draft();
  exporting.exports = export_trie({{"_exported", 0x1234}});
  const FakeImage other(exporting, "C:/Game/libOther"), stranger(exporting, "/libStranger.dylib");
  const FakeImage unnamed(exporting, "libOther");  // no '/', so nothing imports from it
  const auto special = [](unsigned immediate) { return Bytes().u8(BIND_OPCODE_SET_DYLIB_SPECIAL_IMM | immediate); };
  const auto library = [](std::uint64_t n) { return Bytes().u8(BIND_OPCODE_SET_DYLIB_ORDINAL_ULEB).uleb(n); };
  const struct {
    Bytes ordinal;
    const char* name;
    std::uint64_t value;
    std::vector<std::string> questions;
  } cases[] = {
      {special(0), "_exported", FakeImage::base + 0x77, {}},
      {special(0), "_other", 0x6000, {"self:_other", "missing self:_other"}},
      {library(2), "_exported", FakeImage::base + 0x1234, {}},
      {library(2), "_shimmed", 0x5000, {"libOther.dylib:_shimmed"}},
      {Bytes().u8(BIND_OPCODE_SET_DYLIB_ORDINAL_IMM | 1), "_exported", 0x5000, {"libSystem.B.dylib:_exported"}},
      {library(0xFFFFFFFF), "_exported", 0x5000, {"flat:_exported"}},  // negative in 32 bits
      {special(0xF), "_exported", 0x5000, {"flat:_exported"}},
      {special(0xE), "_other", 0x6000, {"flat:_other", "missing flat:_other"}},
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    ImageDraft draft = good_draft();
    draft.exports = export_trie({{"_exported", 0x77}});
    draft.bind = c.ordinal + symbol(c.name) + bind_at(0) + do_bind;
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

TEST_CASE("streams that make no sense, leave their segment or the image's room are refused and write nothing") {
  const auto s = symbol("_s");
  const struct {
    Bytes ImageDraft::* stream;
    Bytes bytes;
    std::string fault;
  } cases[] = {
      {&ImageDraft::rebase, at(0, 4) + times(1), "bad segment index 4"},
      {&ImageDraft::rebase, at(0).u8(0xFF), "unknown rebase opcode 0xf0"},
      {&ImageDraft::rebase, at(0x2FF0) + times(3), "3 pointers from 0x2ff0, 0x8 bytes apart"},
      {&ImageDraft::rebase, at(0) + many(huge), "1152921504606846976 pointers"},
      {&ImageDraft::rebase, at(0) + skipping(17, huge - 8), "not inside segment 2"},
      {&ImageDraft::rebase, at(0) + skipping(0xC01, minus(8)), "has room for"},
      {&ImageDraft::rebase, at(0, 0) + times(1), "(__PAGEZERO, 0x100000000 bytes, not mapped)"},
      {&ImageDraft::rebase, at(0x100, 3) + skipping(3, minus(24)),
       "of segment __LINKEDIT, 0xfffffffffffffff0 bytes apart, lie in the image"},
      {&ImageDraft::bind, s + bind_at(0).u8(0xD1), "unknown bind opcode 0xd0"},
      {&ImageDraft::bind, bind_at(0) + do_bind, "a bind without a symbol name"},
      {&ImageDraft::bind, Bytes().u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).text("_s"), "symbol name has no end"},
      {&ImageDraft::bind, s + bind_at(0, 0) + do_bind, "(__PAGEZERO, 0x100000000 bytes, not mapped"},
      {&ImageDraft::lazy_bind, s + bind_at(0) + bind_skipping(huge, minus(8)), "has room for"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.fault);
    ImageDraft draft = good_draft();
    draft.*c.stream = c.bytes;
    FakeImage fake(draft);
    questions.clear();
    const auto patched = c.stream == &ImageDraft::rebase ? macho_rebase(*fake.image, fake.memory)
                                                         : bind(fake, c.stream == &ImageDraft::lazy_bind);
    REQUIRE_FALSE(patched.has_value());
    CHECK(patched.error().text.find(c.fault) != std::string::npos);
    CHECK(changed_words(fake).empty());
    CHECK(questions.empty());
  }
}

TEST_CASE("a stream that keeps start-up busy with look-ups is given up") {
  // One node with an edge of a mebibyte that is read to its end by every look-up: 8192 of them would read 8 GiB.
  ImageDraft draft = good_draft();
  draft.exports = Bytes().u8(0).u8(1).append(Bytes(1 << 20, std::byte{'x'})).u8(0).uleb(0);
  draft.bind = symbol("_s") + bind_at(0);
  for (int i = 0; i < 8192; ++i)
    draft.bind.append(symbol("_s") + Bytes().u8(BIND_OPCODE_DO_BIND_ADD_ADDR_ULEB).uleb(minus(8)));
  FakeImage fake(draft);
  CHECK(bind(fake, false).error().text.ends_with("looking up its symbols takes too long"));
}
