// The opcode streams over memory of the test: which pointers change to what, which symbols are asked for, what is
// refused before anything is written. The streams are written as bytes: REBASE_OPCODE_ and BIND_OPCODE_ in
// macho/format.h name them.
#include "macho/fixups.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "support/fake_image.h"
#include "support/good_image.h"

using namespace vlm;
using namespace vlm::test;
using namespace std::string_literals;

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

TEST_CASE("rebase opcodes add the slide to exactly the pointers they name") {
  const struct {
    std::string stream;
    std::vector<std::uint64_t> offsets;
  } cases[] = {
      {"\x22\x08\x53", {8, 16, 24}},
      {"\x22\0\x60\x02\x51"s, {0, 8, 16}},
      {"\x22\0\x30\x88\x01\x51"s, {0x88}},
      {"\x22\0\x4F\x51"s, {120}},
      {"\x22\0\x70\x10\x51"s, {0, 0x18}},
      {"\x22\0\x80\x03\x08\x51"s, {0, 16, 32, 48}},
      {"\x22\x20\x80\x03" + minus_24, {0, 16, 32}},  // backwards, down to the segment's start
      {"\x22\xF0\x5F\x52", {0x2FF0, 0x2FF8}},        // up to its end
      {"\x13\x22\0\x51\0\xFF"s, {0}},                // DONE
      {"\x22\0\x60\x82"s, {0, 8}},                   // a ULEB cut by the end ends there
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    Words expected;
    for (const std::uint64_t offset : c.offsets) {
      const std::uint64_t in_file = offset < 0x1000 ? text_vmaddr + 0x1000 + offset / 8 : 0;
      expected.push_back({offset, in_file + FakeImage::base - text_vmaddr});
    }
    CHECK((patch(&ImageDraft::rebase, c.stream).words == expected));
  }
}

TEST_CASE("bind opcodes store the symbol's address plus addend in exactly the pointers they name") {
  const std::string start = shimmed + at_0, minus_0x300 = "\x60\x80\x7A";
  const struct {
    std::string stream;
    Words words;
    Bytes ImageDraft::* kind = &ImageDraft::bind;
  } cases[] = {
      {start + "\x90\x90", {{0, 0x5000}, {8, 0x5000}}},
      {start + "\xA0\x08\x90", {{0, 0x5000}, {16, 0x5000}}},
      {start + "\xB2\x90", {{0, 0x5000}, {24, 0x5000}}},
      {start + "\xC0\x03\x08\x90", {{0, 0x5000}, {16, 0x5000}, {32, 0x5000}, {48, 0x5000}}},
      {start + "\x80\x40\x90", {{0x40, 0x5000}}},
      {start + minus_0x300 + "\x90" + other + "\x90", {{0, 0x4D00}, {8, 0x5D00}}},                   // an addend stays
      {start + symbol("_other", "\x41") + "\x90" + minus_0x300 + "\x90", {{0, 0}, {8, ~0x2FFull}}},  // weak
      {start + "\x90\0\x90"s, {{0, 0x5000}}},
      {start + "\x90\0"s + other + "\x90", {{0, 0x5000}, {8, 0x6000}}, &ImageDraft::lazy_bind},  // ends an entry only
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    CHECK((patch(c.kind, c.stream).words == c.words));
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
      {"\x3F", "_exported", 0x5000, {"flat:_exported"}},
      {"\x3E", "_other", 0x6000, {"flat:_other", "missing flat:_other"}},
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    const std::string stream = c.ordinal + symbol(c.name) + at_0 + "\x90";
    const Patched patched = patch(&ImageDraft::bind, stream, images, export_trie({{"_exported", 0x77}}));
    CHECK((patched.words == Words{{0, c.value}}));
    CHECK_EQ(questions, c.questions);
  }
  // Binds in a row resolve their symbol once; another ordinal or another spelling of it asks again.
  const std::string stream = shimmed + at_0 + "\x11\x90\x90\x11\xC0\x64" + "\0\x12\x90"s + shimmed + "\x90";
  CHECK_EQ(patch(&ImageDraft::bind, stream).words.size(), 104);
  CHECK_EQ(questions, std::vector<std::string>{"libSystem.B.dylib:_shimmed", "libOther.dylib:_shimmed",
                                               "libOther.dylib:_shimmed"});
}

TEST_CASE("streams that make no sense, leave their segment or the image's room are refused and write nothing") {
  constexpr auto rebase = &ImageDraft::rebase, bind = &ImageDraft::bind;
  // One node with an edge of a mebibyte that is read to its end by every look-up: 8192 of them would read 8 GiB.
  const Bytes long_trie = Bytes().u8(0).u8(1).append(Bytes(1 << 20, std::byte{'x'})).u8(0).uleb(0);
  std::string looks_up_forever = at_0;
  for (int i = 0; i < 8192; ++i) looks_up_forever += symbol("_s") + "\xA0" + minus_8;
  const struct {
    Bytes ImageDraft::* stream;
    std::string bytes, fault;
  } cases[] = {
      {rebase, "\x24\0\x51"s, "bad segment index 4"},
      {rebase, "\x22\0\xFF"s, "unknown rebase opcode 0xf0"},
      {rebase, "\x22\xF0\x5F\x53", "3 pointers from 0x2ff0, 0x8 bytes apart"},
      {rebase, "\x22\0\x60"s + huge, "1152921504606846976 pointers"},
      {rebase, "\x22\0\x80\x11\xF8"s + std::string(7, '\xFF') + "\x0F", "not inside segment 2"},  // 17, 2^60 apart
      {rebase, "\x22\0\x80\x81\x18"s + minus_8, "has room for"},                                  // 0xC01 of one place
      {rebase, "\x20\0\x51"s, "(__PAGEZERO, 0x100000000 bytes, not mapped)"},
      {rebase, "\x23\x80\x02\x80\x03" + minus_24,
       "of segment __LINKEDIT, 0xfffffffffffffff0 bytes apart, lie in the image"},
      {bind, shimmed + at_0 + "\xD1", "unknown bind opcode 0xd0"},
      {bind, at_0 + "\x90", "a bind without a symbol name"},
      {bind, "\x40_s", "symbol name has no end"},
      {bind, shimmed + "\x70\0\x90"s, "(__PAGEZERO, 0x100000000 bytes, not mapped"},
      {&ImageDraft::lazy_bind, shimmed + at_0 + "\xC0" + huge + minus_8, "has room for"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.fault);
    const Patched patched = patch(c.stream, c.bytes);
    CHECK(patched.fault.contains(c.fault));
    CHECK((patched.words.empty() && questions.empty()));
  }
  CHECK(patch(bind, looks_up_forever, {}, long_trie).fault.ends_with("looking up its symbols takes too long"));
}
