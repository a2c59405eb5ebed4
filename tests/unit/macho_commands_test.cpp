// The slice of a file and its load commands: what is recorded, what is refused and how it is named.
#include "macho/commands.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <functional>
#include <string>

#include "support/fake_image.h"
#include "support/good_image.h"

using namespace vlm;
using namespace vlm::test;

namespace {

constexpr std::uint32_t CPU_TYPE_ARM64 = 0x0100000C;
constexpr std::uint32_t LC_LAZY_LOAD_DYLIB = 0x20;

/// "offset+size" of the chosen slice, or the fault.
std::string slice_of(const Bytes& file) {
  const std::span<const std::byte> bytes(file);
  const auto first = bytes.first(std::min<std::size_t>(file.size(), 8));
  const auto head =
      bytes.first(std::min<std::size_t>(file.size(), std::max<std::size_t>(8, macho_slice_table_size(first))));
  const auto slice = macho_choose_slice("C:/a.dylib", head, file.size());
  if (!slice) return (slice.error().damaged ? "damaged " : "foreign ") + slice.error().text;
  return std::to_string(slice->offset) + "+" + std::to_string(slice->size);
}

}  // namespace

TEST_CASE("the last x86_64 slice of a universal file is taken, and a thin file whole") {
  const Bytes one(100, std::byte{1}), two(200, std::byte{2});
  Bytes beyond = build_universal({{CPU_TYPE_X86_64, one}});
  beyond.pop_back();
  const struct {
    std::string what;
    Bytes file;
    std::string expected;
  } cases[] = {
      {"thin", one, "0+100"},
      {"two x86_64", build_universal({{CPU_TYPE_X86_64, one}, {CPU_TYPE_X86_64, two}}), "8192+200"},
      {"arm64 only", build_universal({{CPU_TYPE_ARM64, one}}), "foreign [macho] C:/a.dylib has no x86_64 slice"},
      {"cut table", Bytes().big32(FAT_MAGIC).big32(0xFFFFFFFF).big32(CPU_TYPE_X86_64).pad_to(64),
       "damaged C:/a.dylib is damaged or not supported: a universal header of 4294967295 slices does not fit a file of "
       "64 bytes"},
      {"cut slice", beyond,
       "damaged C:/a.dylib is damaged or not supported: the x86_64 slice takes 100 bytes at 4096 of a file of 4195"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.what);
    CHECK_EQ(slice_of(c.file), c.expected);
  }
}

TEST_CASE("load commands fill the record in their order") {
  ImageDraft draft = good_draft();
  draft.dylibs.clear();
  draft.more_commands = {dylib_command(LC_LOAD_DYLIB, "first"), dylib_command(LC_LAZY_LOAD_DYLIB, "no ordinal"),
                         dylib_command(LC_LOAD_WEAK_DYLIB, "second"), dylib_command(LC_REEXPORT_DYLIB, "third"),
                         dylib_command(LC_LOAD_UPWARD_DYLIB, "fourth")};
  const FakeImage fake(draft);
  REQUIRE_EQ(fake.fault, "");
  const MachImage& image = *fake.image;
  CHECK_EQ(image.vm_min, text_vmaddr);
  CHECK_EQ(image.extent(), draft.linkedit_vmaddr + 0x1000 - text_vmaddr);
  REQUIRE_EQ(image.dylib_count, 4);
  const char* const library_names[] = {"first", "second", "third", "fourth"};
  for (int i = 0; i < 4; ++i) CHECK_EQ(std::string(image.dylib_names[i]), library_names[i]);
}

TEST_CASE("load commands that do not fit the file, their segment or the record are refused and named") {
  using Change = std::function<void(ImageDraft&)>;
  const auto command = [](std::uint32_t cmd, std::uint32_t cmdsize, std::size_t size) {
    return [=](ImageDraft& d) { d.more_commands = {Bytes().u32(cmd).u32(cmdsize).pad_to(size)}; };
  };
  const auto segment_at = [](std::uint64_t fileoff, std::uint64_t filesize, std::uint64_t vmsize) {
    return [=](ImageDraft& d) {
      d.more_commands = {segment_command({"__MORE", data_vmaddr, vmsize, 0, {}, {}}, fileoff, filesize)};
    };
  };
  const struct {
    std::string fault;
    Change change;
  } cases[] = {
      {"has cmdsize 0,", command(0x99, 0, 8)},
      {"(0x19) at offset 896: cmdsize is 64, at least 72 expected", command(LC_SEGMENT_64, 64, 64)},
      {"no install name ends inside the command (name offset 24)",
       [](ImageDraft& d) {
         d.more_commands = {Bytes().put(DylibCommand{LC_LOAD_DYLIB, 32, 24, 0, 0, 0}).text("no end..")};
       }},
      {"an install name of 1024 characters", [](ImageDraft& d) { d.dylibs.push_back(std::string(1024, 'x')); }},
      {"more than 64 dependent libraries", [](ImageDraft& d) { d.dylibs.resize(65, "x"); }},
      {"more than 16 segments", [](ImageDraft& d) { d.segments.resize(16, {"__MORE", 0, 0, 0, {}, {}}); }},
      {"segment __MORE has filesize 0x1001, more than its vmsize 0x1000", segment_at(0, 0x1001, 0x1000)},
      {"segment __MORE takes 0x1000 bytes at 0x3ff8 of a file of", segment_at(0x3FF8, 0x1000, 0x1000)},
      {"segment __MORE (0xfffffffffffff000 bytes at 0x100002000) wraps", segment_at(0, 0, ~std::uint64_t{0xFFF})},
      {"more than 4 GiB", segment_at(0, 0, 0xFFFFF000)},
      {"section __DATA,__data (0x2ff1 bytes at 0x100002010) is not inside mapped segment __DATA",
       [](ImageDraft& d) { ++d.segments[data_segment].sections[1].size; }},
      {"segment __MORE has 1000000 sections, its cmdsize 152 has room for 1",
       [](ImageDraft& d) {
         Bytes bytes = segment_command({"__MORE", data_vmaddr, 8, 0, {}, {{"__MORE", "__s", data_vmaddr, 8}}}, 0, 0);
         bytes.put_at(offsetof(SegmentCommand64, nsects), 1000000);
         d.more_commands = {bytes};
       }},
      {"the symbol table takes 0xffffffff0 bytes at 0x20 of a file of",
       [](ImageDraft& d) { d.more_commands = {Bytes().put(SymtabCommand{LC_SYMTAB, 24, 0x20, 0xFFFFFFFF, 0, 0})}; }},
      {"the lazy-bind stream takes 0xffffffff bytes at 0x1 of a file of",
       [](ImageDraft& d) {
         d.more_commands = {Bytes().put(DyldInfoCommand{LC_DYLD_INFO, 48, 0, 0, 0, 0, 0, 0, 1, 0xFFFFFFFF, 0, 0})};
       }},
  };
  for (const auto& c : cases) {
    CAPTURE(c.fault);
    ImageDraft draft = good_draft();
    c.change(draft);
    const FakeImage fake(draft);
    CAPTURE(fake.fault);
    CHECK(fake.fault.find(c.fault) != std::string::npos);
  }
}
