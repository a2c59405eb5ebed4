// The patch list over plain memory: what is refused, the exact bytes of what is written.
#include "tls/patch_list.h"

#include <doctest/doctest.h>

#include <cstring>
#include <string>
#include <string_view>

using namespace vlm;
using namespace std::literals;

namespace {

std::span<const std::byte> bytes(std::string_view text) { return std::as_bytes(std::span(text)); }
std::string text(std::span<const std::byte> from) { return {reinterpret_cast<const char*>(from.data()), from.size()}; }

/// "mov rax, gs:[rax*8]" through rcx, as the build tool writes it but for the red zone: slot at 8, gs load at 19.
constexpr auto rcx_template =
    "\x48\x8D\x64\x24\x80\x51\x48\xB9SLOTSLOT\x48\x8B\x09\x65\x48\x8B\x09"
    "\x48\x8B\x04\xC1\x59\xFF\x25\x00\x00\x00\x00RETURNTO"sv;
constexpr auto site_code = "\x65\x48\x8B\x04\xC5\x00\x00\x00\x00"sv;
const auto site_bytes = bytes(site_code), rcx_bytes = bytes(rcx_template);

/// The list without its trailer.
std::string blob_of(std::initializer_list<PatchEntry> entries) {
  const std::string list = text(write_patch_list(std::vector(entries)));
  return list.substr(0, list.size() - gs_patch_trailer_size);
}

std::string replaced(std::string_view from, std::size_t at, std::string_view with) {
  return std::string(from).replace(at, with.size(), with);
}
std::string le(auto value) { return text(std::as_bytes(std::span(&value, 1))); }

/// An image of 64 bytes and the trampolines behind it, within reach of each other unless they are moved.
struct Fixture {
  std::uint64_t offset = 0x1238;
  alignas(16) std::byte memory[64 + 512] = {};

  explicit Fixture(std::string_view image) { std::memcpy(memory, image.data(), image.size()); }
  std::string apply(std::string_view blob, bool expansion, std::uint64_t away = 64) {
    const auto size = measure_patch_list(bytes(blob), expansion, "LIST");
    if (!size) return size.error().text;
    std::byte* const trampolines = reinterpret_cast<std::byte*>(reinterpret_cast<std::uint64_t>(memory) + away);
    const PatchTarget target = {std::span(memory).first(64), {trampolines, *size}, &offset, expansion};
    const auto patched = apply_patch_list(bytes(blob), target, "LIST");
    return patched ? std::to_string(*patched) : patched.error().text;
  }
};

}  // namespace

TEST_CASE("a list that cannot be applied is named and leaves the image as it was") {
  const std::string good = blob_of({{0, site_bytes, 8, rcx_bytes}});
  constexpr auto layout = "LIST: unexpected trampoline layout in entry 0"sv;
  const struct {
    std::string blob;
    bool expansion;
    std::string_view fault;
    std::uint64_t away = 64;
  } cases[] = {
      {good.substr(0, 15), false, "LIST is not a gs patch file"},
      {good.substr(0, good.size() - 1), false, "LIST is truncated"},
      {blob_of({{0, site_bytes, 35, rcx_bytes}}), false, "LIST: bad entry 0"},  // slot past the trampoline
      {blob_of({{56, site_bytes, 8, rcx_bytes}}), false, "LIST: bad entry 0"},  // across the image's end
      {blob_of({{0, site_bytes, 28, rcx_bytes}}), true, layout},                // slot too late for the load
      {blob_of({{0, site_bytes, 8, bytes(replaced(rcx_template, 19, "\x64"sv))}}), true, layout},  // no gs prefix
      {good, false, "gs trampoline out of range", 0x80000005},  // never touched: the distance is checked first
  };
  for (const auto& c : cases) {
    CAPTURE(&c - cases);
    Fixture fixture(site_code);
    CHECK_EQ(fixture.apply(c.blob, c.expansion, c.away), std::string(c.fault));
    CHECK(text(std::span(fixture.memory).first(64)) == std::string(site_code) + std::string(55, '\0'));
  }
}

TEST_CASE("entries write exactly their jumps, their nops and their trampolines at multiples of 16") {
  const std::string loads[] = {"\x65\x48\x8B\x09", "\x65\x48\x8B\x0C\x25\x80\x17\0\0\x48\x8B\x89\x38\x12\0\0"s};
  for (const bool expansion : {false, true}) {
    CAPTURE(expansion);
    std::string expected = std::string(11, '\xCC') + std::string(site_code) + std::string(44, '\x65');
    Fixture fixture(expected);
    const std::string blob = blob_of({{11, site_bytes, 8, rcx_bytes}, {30, bytes("eeeee"), 8, rcx_bytes}});
    CHECK_EQ(fixture.apply(blob, expansion), "2");
    const auto add = [&](std::size_t site, std::size_t length, std::size_t at) {
      const std::string jump = "\xE9" + le(static_cast<std::int32_t>(at - site - 5));
      expected = replaced(expected, site, jump + std::string(length - 5, '\x90'));
      expected.resize(at);
      expected += std::string(rcx_template.substr(0, 8)) + le(&fixture.offset) + "\x48\x8B\x09" + loads[expansion] +
                  std::string(rcx_template.substr(23, 11)) + le(fixture.memory + site + length);
    };
    add(11, 9, 64);
    add(30, 5, expansion ? 128 : 112);
    expected.resize(sizeof fixture.memory);
    CHECK(text(fixture.memory) == expected);
  }
}
