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
  constexpr auto layout = "LIST: unexpected trampoline layout in entry 0"sv;
  const struct {
    std::string blob;
    bool expansion;
    std::string_view fault;
  } cases[] = {
      {good.substr(0, 15), false, "LIST is not a gs patch file"},
      {good.substr(0, good.size() - 1), false, "LIST is truncated"},
      {blob_of({{0, site_code, 43, rcx_template}}), false, "LIST: bad entry 0"},           // slot past the trampoline
      {blob_of({{56, site_code, 8, rcx_template}}), false, "LIST: bad entry 0"},           // across the image's end
      {blob_of({{0, site_code, 36, rcx_template}}), true, layout},                         // slot too late for the load
      {blob_of({{0, site_code, 8, replaced(rcx_template, 19, "\x64"sv)}}), true, layout},  // no gs prefix
      {blob_of({{0, site_code, 8, replaced(rcx_template, 22, "\x0C"sv)}}), true, layout},  // a SIB byte
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    Fixture fixture;
    CHECK_EQ(fixture.apply(c.blob, c.expansion), std::string(c.fault));
    CHECK(text(fixture.image_bytes()) == fixture.image_before);
  }
}

TEST_CASE("a good entry writes exactly its jump, its nops and its trampoline") {
  const std::string rcx_load = "\x65\x48\x8B\x0C\x25\x80\x17\0\0\x48\x8B\x89\x38\x12\0\0"s;
  const std::string r10_load = "\x65\x4C\x8B\x14\x25\x80\x17\0\0\x4D\x8B\x92\x38\x12\0\0"s;
  const struct {
    bool expansion;
    std::size_t site_length;
    std::string_view from;
    std::string load;  // what stands for the gs load
  } cases[] = {{false, 9, rcx_template, "\x65\x48\x8B\x09"},
               {false, 5, rcx_template, "\x65\x48\x8B\x09"},  // no nops
               {true, 9, rcx_template, rcx_load},
               {true, 9, r10_template, r10_load}};
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    constexpr std::size_t site = 11;
    Fixture fixture(std::string(site, '\xCC') + std::string(site_code) + "\xC3");
    CHECK_EQ(fixture.apply(blob_of({{site, site_code.substr(0, c.site_length), 8, c.from}}), c.expansion), "1");
    const auto displacement = static_cast<std::int32_t>(64 - (site + 5));
    const std::string jump = "\xE9" + fixture.le(displacement) + std::string(c.site_length - 5, '\x90');
    CHECK(text(fixture.image_bytes()) == replaced(fixture.image_before, site, jump));
    const std::string trampoline =
        std::string(c.from.substr(0, 8)) + fixture.offset_address() + std::string(c.from.substr(16, 3)) + c.load +
        std::string(c.from.substr(23, c.from.size() - 31)) + fixture.address_of(site + c.site_length);
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
