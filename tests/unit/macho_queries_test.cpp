// What an image says about its names and addresses.
#include "macho/queries.h"
#include "macho/symbol_index.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <string>

#include "support/fake_image.h"
#include "support/good_image.h"

using namespace vlm;
using namespace vlm::test;

namespace {

constexpr std::uint64_t base = FakeImage::base;

FakeImage image_with_trie(Bytes trie) {
  ImageDraft draft = good_draft();
  draft.exports = std::move(trie);
  return FakeImage(draft);
}

FakeImage image_with_symbols(std::vector<SymbolDraft> symbols) {
  ImageDraft draft = good_draft();
  draft.symbols = std::move(symbols);
  return FakeImage(draft);
}

}  // namespace

TEST_CASE("exports are found by their whole name only") {
  const FakeImage fake = image_with_trie(export_trie({{"_ab", 0x100},
                                                      {"_abc", 0x200},
                                                      {"_abd", 0x300, EXPORT_SYMBOL_FLAGS_KIND_ABSOLUTE},
                                                      {"_reexported", 3, EXPORT_SYMBOL_FLAGS_REEXPORT},
                                                      {"_stub", 0x400, EXPORT_SYMBOL_FLAGS_STUB_AND_RESOLVER},
                                                      {"_split_name", 0x500}}));
  const struct {
    std::string name;
    std::uint64_t address;
  } cases[] = {{"_ab", base + 0x100},
               {"_abc", base + 0x200},
               {"_abd", 0x300},
               {"_stub", base + 0x400},
               {"_split_name", base + 0x500},
               {"_a", 0},
               {"", 0},
               {"_abcd", 0},
               {"_split_names", 0},
               {"_reexported", 0}};
  for (const auto& c : cases) {
    CAPTURE(c.name);
    CHECK_EQ(macho_find_export(*fake.image, c.name), c.address);
  }
  CHECK_EQ(macho_find_export(*image_with_trie({}).image, "_ab"), 0);
}

TEST_CASE("an export trie is walked as dyld walks it: the first edge that fits is taken, sound or not") {
  const auto terminal = [](std::uint64_t address) { return Bytes().u8(2).u8(0).uleb(address).u8(0); };
  const struct {
    std::string what;
    Bytes trie;
    std::uint64_t address;  // of "_name"
  } cases[] = {
      {"the first of two edges that fit leads nowhere",
       Bytes().u8(0).u8(2).c_string("_").uleb(12).c_string("_name").uleb(14).u8(0).u8(0).append(terminal(0x11)), 0},
      {"an empty edge is passed through",
       Bytes().u8(0).u8(1).c_string("").uleb(4).u8(0).u8(1).c_string("_name").uleb(13).append(terminal(0x22)),
       base + 0x22},
      {"a root that is its own child", Bytes().u8(0).u8(1).c_string("").uleb(0), 0},
  };
  for (const auto& c : cases) {
    CAPTURE(c.what);
    CHECK_EQ(macho_find_export(*image_with_trie(c.trie).image, "_name"), c.address);
  }
}

TEST_CASE("the symbol of an address is the nearest one below it") {
  const FakeImage fake(good_draft());
  const struct {
    std::uint64_t offset;
    std::string name;
    std::uint64_t distance;
  } cases[] = {{0x1000, "_game_start", 0}, {0x1100, "_helper", 0}, {0x1180, "_helper", 0x80}};
  for (const bool indexed : {false, true})
    for (const auto& c : cases) {
      if (indexed) macho_index_symbols(*fake.image);
      CAPTURE(indexed);
      CAPTURE(c.offset);
      std::uint64_t distance = ~std::uint64_t{0};
      const char* name = macho_symbol_for_address(*fake.image, base + c.offset, &distance);
      REQUIRE(name != nullptr);
      CHECK_EQ(std::string(name), c.name);
      CHECK_EQ(distance, c.distance);
      CHECK_EQ(macho_symbol_for_address(*fake.image, base + c.offset, nullptr), name);
    }
  std::uint64_t untouched = 7;
  for (const std::uint64_t address : {base - 1, base, base + 0xFFF, base + fake.image->extent(), ~std::uint64_t{0}}) {
    CHECK_EQ(macho_symbol_for_address(*fake.image, address, &untouched), nullptr);
  }
  CHECK_EQ(untouched, 7);
  CHECK_EQ(macho_symbol_for_address(*image_with_symbols({}).image, base + 0x1000, nullptr), nullptr);
}

TEST_CASE("a symbol whose name is not inside the string table is passed over") {
  FakeImage fake = image_with_symbols({{"_near", N_SECT, text_vmaddr + 0x1100},
                                       {"_low", N_SECT, text_vmaddr + 0x1000},
                                       {"_last", N_SECT, text_vmaddr + 0x1080}});
  const MachImage& image = *fake.image;
  fake.file.put_at(image.symoff, 0xFFFFFFF0u);                         // n_strx of _near
  fake.file.put_at(image.stroff + image.strsize - 1, std::byte{'x'});  // _last has no end any more
  CHECK_EQ(std::string(macho_symbol_for_address(image, base + 0x1200, nullptr)), "_low");
  macho_index_symbols(image);
  CHECK_EQ(std::string(macho_symbol_for_address(image, base + 0x1200, nullptr)), "_low");
  CHECK_EQ(macho_symbol_by_name(image, "_last"), 0);
  CHECK_EQ(macho_symbol_by_name(image, "_low"), base + 0x1000);
}

TEST_CASE("symbols are found by name with or without the underscore, local ones included") {
  const FakeImage fake(good_draft());
  const struct {
    std::string name;
    std::uint64_t address;
  } cases[] = {{"_game_start", base + 0x1000},
               {"game_start", base + 0x1000},
               {"helper", base + 0x1100},
               {"_helper_alias", base + 0x1100},
               {"helper_", 0},
               {"_debug", 0},
               {"_absolute", 0},
               {"_far", 0},
               {"", 0}};
  for (const auto& c : cases) {
    CAPTURE(c.name);
    CHECK_EQ(macho_symbol_by_name(*fake.image, c.name), c.address);
  }

  const FakeImage twice = image_with_symbols({{"_name", N_SECT, text_vmaddr + 0x10},
                                              {"name", N_SECT, text_vmaddr + 0x20},
                                              {"_below", N_SECT, text_vmaddr - 1},
                                              {"_below", N_SECT, text_vmaddr}});
  CHECK_EQ(macho_symbol_by_name(*twice.image, "name"), base + 0x10);  // the first that matches either way
  CHECK_EQ(macho_symbol_by_name(*twice.image, "below"), 0);           // the first match decides
}
