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
using namespace std::string_literals;

namespace {

constexpr std::uint64_t base = FakeImage::base;

std::uint64_t export_in(const Bytes& trie, std::string_view name) {
  ImageDraft draft = good_draft();
  draft.exports = trie;
  return macho_find_export(*FakeImage(draft).image, name);
}

FakeImage image_with_symbols(std::vector<SymbolDraft> symbols) {
  ImageDraft draft = good_draft();
  draft.symbols = std::move(symbols);
  return FakeImage(draft);
}

}  // namespace

TEST_CASE("exports are found by their whole name only, as dyld walks the trie: the first edge that fits is taken") {
  const Bytes trie = export_trie({{"_ab", 0x100},
                                  {"_abd", 0x300, EXPORT_SYMBOL_FLAGS_KIND_ABSOLUTE},
                                  {"_reexported", 3, EXPORT_SYMBOL_FLAGS_REEXPORT},
                                  {"_stub", 0x400, EXPORT_SYMBOL_FLAGS_STUB_AND_RESOLVER}});
  const std::string terminal = "\2\0\x22\0"s;
  const struct {
    std::string name;
    std::uint64_t address;
    Bytes trie;
  } cases[] = {
      {"_ab", base + 0x100, trie},
      {"_abd", 0x300, trie},
      {"_stub", base + 0x400, trie},
      {"_a", 0, trie},
      {"", 0, trie},
      {"_abdc", 0, trie},
      {"_reexported", 0, trie},
      {"_ab", 0, {}},
      {"_name", 0, Bytes().text("\0\2_\0\xC_name\0\xE\0\0"s + terminal)},  // the first edge that fits leads nowhere
      {"_name", base + 0x22, Bytes().text("\0\1\0\4\0\1_name\0\xD"s + terminal)},  // an empty edge is passed through
      {"_name", 0, Bytes().text("\0\1\0\0"s)},                                     // a root that is its own child
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    CHECK_EQ(export_in(c.trie, c.name), c.address);
  }
}

TEST_CASE("the symbol of an address is the nearest one below it") {
  const FakeImage fake(good_draft());
  FakeImage broken = image_with_symbols({{"_near", N_SECT, text_vmaddr + 0x1100},
                                         {"_low", N_SECT, text_vmaddr + 0x1000},
                                         {"_last", N_SECT, text_vmaddr + 0x1080}});
  // Names that are not inside the string table: n_strx of _near; _last has no end any more.
  broken.file.put_at(broken.image->symoff, 0xFFFFFFF0u);
  broken.file.put_at(broken.image->stroff + broken.image->strsize - 1, std::byte{'x'});
  const auto symbol_at = [](const FakeImage& in, std::uint64_t address) {
    std::uint64_t distance = 7;
    const char* const name = macho_symbol_for_address(*in.image, address, &distance);
    CHECK_EQ(macho_symbol_for_address(*in.image, address, nullptr), name);
    return (name != nullptr ? name : "none") + "+"s + std::to_string(distance);
  };
  for (const bool indexed : {false, true}) {
    CAPTURE(indexed);
    if (indexed) macho_index_symbols(*fake.image), macho_index_symbols(*broken.image);
    CHECK_EQ(symbol_at(fake, base + 0x1000), "_game_start+0");
    CHECK_EQ(symbol_at(fake, base + 0x10FF), "_game_start+255");
    CHECK_EQ(symbol_at(fake, base + 0x1180), "_helper+128");
    for (const std::uint64_t none : {base - 1, base, base + 0xFFF, base + fake.image->extent(), ~std::uint64_t{0}}) {
      CHECK_EQ(symbol_at(fake, none), "none+7");
    }
    CHECK_EQ(symbol_at(broken, base + 0x1200), "_low+512");
  }
  CHECK_EQ(symbol_at(image_with_symbols({}), base + 0x1000), "none+7");
  CHECK_EQ(macho_symbol_by_name(*broken.image, "_last"), 0);
  CHECK_EQ(macho_symbol_by_name(*broken.image, "_low"), base + 0x1000);
}

TEST_CASE("symbols are found by name with or without the underscore, local ones included") {
  const FakeImage fake(good_draft());
  for (const char* name : {"_game_start", "game_start"})
    CHECK_EQ(macho_symbol_by_name(*fake.image, name), base + 0x1000);
  for (const char* name : {"helper", "_helper_alias"}) CHECK_EQ(macho_symbol_by_name(*fake.image, name), base + 0x1100);
  for (const char* name : {"helper_", "_debug", "_absolute", "_far", ""}) {
    CHECK_EQ(macho_symbol_by_name(*fake.image, name), 0);
  }
  const FakeImage twice = image_with_symbols({{"_name", N_SECT, text_vmaddr + 0x10},
                                              {"name", N_SECT, text_vmaddr + 0x20},
                                              {"_below", N_SECT, text_vmaddr - 1},
                                              {"_below", N_SECT, text_vmaddr}});
  CHECK_EQ(macho_symbol_by_name(*twice.image, "name"), base + 0x10);  // the first that matches either way
  CHECK_EQ(macho_symbol_by_name(*twice.image, "below"), 0);           // the first match decides
}
