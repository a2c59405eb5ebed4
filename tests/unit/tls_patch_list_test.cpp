// The patch list over plain memory: what is refused, the exact bytes of what is written.
#include "tls/patch_list.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <cstring>
#include <string>
#include <string_view>

using namespace vlm;
using namespace std::literals;

namespace {

std::span<const std::byte> bytes(std::string_view text) { return std::as_bytes(std::span(text)); }
std::string text(std::span<const std::byte> from) { return {reinterpret_cast<const char*>(from.data()), from.size()}; }

/// "mov rax, gs:[rax*8]" through rcx, as the build tool writes it: slot at 8, gs load at 19.
constexpr auto rcx_template =
    "\x48\x8D\x64\x24\x80\x51\x48\xB9"
    "SLOTSLOT"
    "\x48\x8B\x09"
    "\x65\x48\x8B\x09"
    "\x48\x8B\x04\xC1\x59\x48\x8D\xA4\x24\x80\x00\x00\x00\xFF\x25\x00\x00\x00\x00"
    "RETURNTO"sv;
/// The same through r10, whose number needs the prefix's base and register bits.
constexpr auto r10_template =
    "\x48\x8D\x64\x24\x80\x90\x49\xBA"
    "SLOTSLOT"
    "\x4D\x8B\x12"
    "\x65\x4D\x8B\x12"
    "\x49\x8B\x04\xC2\x90\x48\x8D\xA4\x24\x80\x00\x00\x00\xFF\x25\x00\x00\x00\x00"
    "RETURNTO"sv;
constexpr auto site_code = "\x65\x48\x8B\x04\xC5\x00\x00\x00\x00"sv;

struct Row {
  std::uint32_t site;
  std::string_view expected;
  std::uint16_t slot;
  std::string_view trampoline;
};

/// The list without its trailer.
std::string blob_of(std::initializer_list<Row> rows) {
  std::vector<PatchEntry> entries;
  for (const Row& row : rows) entries.push_back({row.site, bytes(row.expected), row.slot, bytes(row.trampoline)});
  const auto list = write_patch_list(entries);
  return text(std::span(list).first(list.size() - gs_patch_trailer_size));
}

/// An image of 64 bytes and the trampolines behind it, within reach of each other.
struct Fixture {
  std::uint64_t offset = 0x1238;
  alignas(16) std::byte memory[64 + 512] = {};
  std::string image_before;

  explicit Fixture(std::string_view image = site_code) {
    std::memcpy(memory, image.data(), image.size());
    image_before = text(image_bytes());
  }
  std::span<std::byte> image_bytes() { return std::span(memory).first(64); }
  std::span<std::byte> trampolines() { return std::span(memory).subspan(64); }

  std::string apply(std::string_view blob, bool expansion) {
    const auto size = measure_patch_list(bytes(blob), expansion, "LIST");
    if (!size) return size.error().text;
    REQUIRE_LE(*size, trampolines().size());
    const PatchTarget target = {image_bytes(), trampolines().first(*size), &offset, expansion};
    const auto patched = apply_patch_list(bytes(blob), target, "LIST");
    return patched ? std::to_string(*patched) : patched.error().text;
  }
  template <class T>
  std::string le(T value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
  }
  std::string offset_address() { return le(reinterpret_cast<std::uint64_t>(&offset)); }
  std::string address_of(std::size_t offset_in_image) {
    return le(reinterpret_cast<std::uint64_t>(memory + offset_in_image));
  }
};

std::string replaced(std::string_view from, std::size_t at, std::string_view with) {
  return std::string(from).replace(at, with.size(), with);
}

}  // namespace

TEST_CASE("a list that cannot be applied is named and leaves the image as it was") {
  const std::string good = blob_of({{0, site_code, 8, rcx_template}});
  const std::string count_too_large = replaced(good, 8, "\x02"sv);
  const std::string huge_count = replaced(good, 8, "\xFF\xFF\xFF\xFF"sv);
  const auto short_template = rcx_template.substr(rcx_template.size() - 13);
  constexpr auto mismatch =
      "gs patch site 0x0 does not match (found 65 48 8b 04, expected 65 48 8b 0c): "
      "LIST was made for a different GameAssembly.dylib"sv;
  const struct {
    const char* what;
    std::string blob;
    bool expansion;
    std::string_view fault;
  } cases[] = {
      {"empty", "", false, "LIST is not a gs patch file"},
      {"15 bytes", good.substr(0, 15), false, "LIST is not a gs patch file"},
      {"another magic", replaced(good, 6, "2"sv), false, "LIST is not a gs patch file"},
      {"magic without its NUL", replaced(good, 7, "0"sv), false, "LIST is not a gs patch file"},
      {"no entry for the count", good.substr(0, 16), false, "LIST is truncated"},
      {"cut in the expected bytes", good.substr(0, 16 + 4 + 1 + 3), false, "LIST is truncated"},
      {"cut in the slot offset", good.substr(0, 16 + 9 + site_code.size() - 1), false, "LIST is truncated"},
      {"cut in the trampoline", good.substr(0, good.size() - 1), false, "LIST is truncated"},
      {"one entry too few", count_too_large, false, "LIST is truncated"},
      {"four billion entries announced", huge_count, false, "LIST is truncated"},
      {"site of 4 bytes", blob_of({{0, site_code.substr(0, 4), 8, rcx_template}}), false, "LIST: bad entry 0"},
      {"trampoline of 13 bytes", blob_of({{0, site_code, 0, short_template}}), false, "LIST: bad entry 0"},
      {"slot past the trampoline", blob_of({{0, site_code, 43, rcx_template}}), false, "LIST: bad entry 0"},
      {"slot far outside", blob_of({{0, site_code, 0xFFFF, rcx_template}}), false, "LIST: bad entry 0"},
      {"site across the image's end", blob_of({{56, site_code, 8, rcx_template}}), false, "LIST: bad entry 0"},
      {"site at 4 GiB", blob_of({{0xFFFFFFFF, site_code, 8, rcx_template}}), false, "LIST: bad entry 0"},
      {"other bytes", blob_of({{0, "\x65\x48\x8B\x0C\xC5\x00\x00\x00\x00"sv, 8, rcx_template}}), false, mismatch},
      {"slot too late for the load", blob_of({{0, site_code, 36, rcx_template}}), true,
       "LIST: unexpected trampoline layout in entry 0"},
      {"no gs prefix", blob_of({{0, site_code, 8, replaced(rcx_template, 19, "\x64"sv)}}), true,
       "LIST: unexpected trampoline layout in entry 0"},
      {"no load", blob_of({{0, site_code, 8, replaced(rcx_template, 21, "\x89"sv)}}), true,
       "LIST: unexpected trampoline layout in entry 0"},
      {"load with a SIB byte", blob_of({{0, site_code, 8, replaced(rcx_template, 22, "\x0C"sv)}}), true,
       "LIST: unexpected trampoline layout in entry 0"},
      {"load relative to rip", blob_of({{0, site_code, 8, replaced(rcx_template, 22, "\x0D"sv)}}), true,
       "LIST: unexpected trampoline layout in entry 0"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.what);
    Fixture fixture;
    CHECK_EQ(fixture.apply(c.blob, c.expansion), std::string(c.fault));
    CHECK(text(fixture.image_bytes()) == fixture.image_before);
  }
}

TEST_CASE("a good entry writes exactly its jump, its nops and its trampoline") {
  const auto expansion_tail = rcx_template.substr(23, rcx_template.size() - 31);
  const auto r10_tail = r10_template.substr(23, r10_template.size() - 31);
  const struct {
    const char* what;
    bool expansion;
    std::size_t site_length;
    std::string_view from;
    std::string load;  // what stands for the gs load
    std::string_view tail;
  } cases[] = {
      {"normal, four nops", false, 9, rcx_template, "\x65\x48\x8B\x09", expansion_tail},
      {"normal, no nops", false, 5, rcx_template, "\x65\x48\x8B\x09", expansion_tail},
      {"expansion, rcx", true, 9, rcx_template,
       std::string("\x65\x48\x8B\x0C\x25\x80\x17\x00\x00"
                   "\x48\x8B\x89\x38\x12\x00\x00"sv),
       expansion_tail},
      {"expansion, r10", true, 9, r10_template,
       std::string("\x65\x4C\x8B\x14\x25\x80\x17\x00\x00"
                   "\x4D\x8B\x92\x38\x12\x00\x00"sv),
       r10_tail},
  };
  for (const auto& c : cases) {
    CAPTURE(c.what);
    constexpr std::size_t site = 11;
    Fixture fixture(std::string(site, '\xCC') + std::string(site_code) + "\xC3");
    const auto expected = site_code.substr(0, c.site_length);
    CHECK_EQ(fixture.apply(blob_of({{site, expected, 8, c.from}}), c.expansion), "1");

    const auto displacement = static_cast<std::int32_t>(64 - (site + 5));
    const std::string jump = "\xE9" + fixture.le(displacement) + std::string(c.site_length - 5, '\x90');
    CHECK(text(fixture.image_bytes()) == replaced(fixture.image_before, site, jump));
    const std::string trampoline = std::string(c.from.substr(0, 8)) + fixture.offset_address() +
                                   std::string(c.from.substr(16, 3)) + c.load + std::string(c.tail) +
                                   fixture.address_of(site + c.site_length);
    CHECK(text(fixture.trampolines().first(trampoline.size())) == trampoline);
    for (const std::byte byte : fixture.trampolines().subspan(trampoline.size())) CHECK(byte == std::byte{0});
  }
}

TEST_CASE("entries are applied in order, each trampoline at the next multiple of 16") {
  const std::string image = std::string(site_code) + std::string(site_code);
  // 42 bytes, 54 in expansion mode: without the last step over the red zone.
  const std::string shorter = std::string(rcx_template).erase(28, 8);
  for (const bool expansion : {false, true}) {
    CAPTURE(expansion);
    Fixture fixture(image);
    const std::string blob = blob_of({{9, site_code, 8, shorter}, {0, site_code, 8, shorter}});
    CHECK_EQ(measure_patch_list(bytes(blob), expansion, "LIST").value(), expansion ? 128 : 96);
    CHECK_EQ(fixture.apply(blob, expansion), "2");
    std::int32_t first, second;
    std::memcpy(&first, fixture.memory + 9 + 1, 4);
    std::memcpy(&second, fixture.memory + 0 + 1, 4);
    CHECK_EQ(9 + 5 + first, 64);
    CHECK_EQ(0 + 5 + second, 64 + (expansion ? 64 : 48));
  }
  // The second entry sees what the first one wrote.
  Fixture fixture;
  CHECK_EQ(fixture.apply(blob_of({{0, site_code, 8, rcx_template}, {0, site_code, 8, rcx_template}}), false)
               .find("gs patch site 0x0 does not match (found e9 "),
           0);
}

TEST_CASE("a list without entries takes 16 bytes and patches nothing") {
  const std::string blob = blob_of({});
  CHECK_EQ(blob.size(), 16);
  CHECK_EQ(measure_patch_list(bytes(blob), false, "LIST").value(), 16);
  Fixture fixture;
  CHECK_EQ(fixture.apply(blob, false), "0");
  CHECK_EQ(fixture.apply(replaced(blob, 12, "\x01"sv), false), "0");  // the upper half of the count is not read
}

TEST_CASE("a trampoline out of a jump's reach is refused before anything is written") {
  Fixture fixture;
  const std::string blob = blob_of({{0, site_code, 8, rcx_template}});
  // Never touched: the distance is checked first.
  const auto far_away = reinterpret_cast<std::uint64_t>(fixture.memory) + 0x80000005;
  const PatchTarget target = {
      fixture.image_bytes(), {reinterpret_cast<std::byte*>(far_away), 64}, &fixture.offset, false};
  const auto patched = apply_patch_list(bytes(blob), target, "LIST");
  REQUIRE(!patched);
  CHECK_EQ(patched.error().text, "gs trampoline out of range");
  CHECK(text(fixture.image_bytes()) == fixture.image_before);
}

TEST_CASE("a trailer tells the blob's size or is none") {
  static constexpr struct {
    std::string_view trailer;
    std::uint64_t size;  // 0: none
  } cases[] = {
      {"\x01\0\0\0\0\0\0\0VLMGSPEM"sv, 1}, {"\xFF\xFF\xFF\x03\0\0\0\0VLMGSPEM"sv, 0x3FFFFFF},
      {"\0\0\0\x04\0\0\0\0VLMGSPEM"sv, 0}, {"\x10\0\0\0\x01\0\0\0VLMGSPEM"sv, 0},
      {"\0\0\0\0\0\0\0\0VLMGSPEM"sv, 0},   {"\x10\0\0\0\0\0\0\0VLMGSPEN"sv, 0},
  };
  for (const auto& c : cases) CHECK_EQ(gs_patch_blob_size(bytes(c.trailer).first<16>()).value_or(0), c.size);
}
