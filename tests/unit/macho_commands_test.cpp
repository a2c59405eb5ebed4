// The slice of a file and its load commands: what is recorded, what is refused and how it is named.
#include "macho/commands.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <string>

#include "support/fake_image.h"
#include "support/good_image.h"

using namespace vlm;
using namespace vlm::test;

namespace {

constexpr std::uint32_t LC_LAZY_LOAD_DYLIB = 0x20;

/// "offset+size" of the chosen slice, or the fault.
std::string slice_of(const Bytes& file) {
  const std::span<const std::byte> bytes(file);
  const std::size_t table = macho_slice_table_size(bytes.first(std::min<std::size_t>(file.size(), 8)));
  const auto head = bytes.first(std::min<std::size_t>(file.size(), std::max<std::size_t>(8, table)));
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
  std::string names;
  for (int i = 0; i < image.dylib_count; ++i) names += std::string(image.dylib_names[i]) + " ";
  CHECK_EQ(names, "first second third fourth ");
}

TEST_CASE("load commands that do not fit the file, their segment or the record are refused and named") {
  const auto segment_at = [](std::uint64_t fileoff, std::uint64_t filesize, std::uint64_t vmsize) {
    return segment_command({"__MORE", data_vmaddr, vmsize, 0, {}, {}}, fileoff, filesize);
  };
  Bytes sections = segment_command({"__MORE", data_vmaddr, 8, 0, {}, {{"__MORE", "__s", data_vmaddr, 8}}}, 0, 0);
  sections.put_at(offsetof(SegmentCommand64, nsects), 1000000);
  const auto fault_of = [](const ImageDraft& draft) { return FakeImage(draft).fault; };
  const struct {
    std::string fault;
    Bytes command;
    std::size_t count = 1;  // how many of it
  } cases[] = {
      {"has cmdsize 0,", Bytes().u32(0x99).u32(0)},
      {"(0x19) at offset 896: cmdsize is 64, at least 72 expected", Bytes().u32(LC_SEGMENT_64).u32(64).pad_to(64)},
      {"no install name ends inside the command (name offset 24)",
       Bytes().put(DylibCommand{LC_LOAD_DYLIB, 32, 24, 0, 0, 0}).text("no end..")},
      {"an install name of 1024 characters", dylib_command(LC_LOAD_DYLIB, std::string(1024, 'x'))},
      {"more than 64 dependent libraries", dylib_command(LC_LOAD_DYLIB, "x"), 62},
      {"more than 16 segments", segment_at(0, 0, 0), 13},
      {"segment __MORE has filesize 0x1001, more than its vmsize 0x1000", segment_at(0, 0x1001, 0x1000)},
      {"segment __MORE takes 0x1000 bytes at 0x3ff8 of a file of", segment_at(0x3FF8, 0x1000, 0x1000)},
      {"segment __MORE (0xfffffffffffff000 bytes at 0x100002000) wraps", segment_at(0, 0, ~std::uint64_t{0xFFF})},
      {"more than 4 GiB", segment_at(0, 0, 0xFFFFF000)},
      {"segment __MORE has 1000000 sections, its cmdsize 152 has room for 1", sections},
      {"the symbol table takes 0xffffffff0 bytes at 0x20 of a file of",
       Bytes().put(SymtabCommand{LC_SYMTAB, 24, 0x20, 0xFFFFFFFF, 0, 0})},
      {"the lazy-bind stream takes 0xffffffff bytes at 0x1 of a file of",
       Bytes().put(DyldInfoCommand{LC_DYLD_INFO, 48, 0, 0, 0, 0, 0, 0, 1, 0xFFFFFFFF, 0, 0})},
  };
  for (const auto& c : cases) {
    ImageDraft draft = good_draft();
    draft.more_commands.assign(c.count, c.command);
    CHECK(fault_of(draft).contains(c.fault));
    draft.more_commands.pop_back();
    CHECK_EQ(fault_of(draft), "");
  }
  ImageDraft draft = good_draft();
  ++draft.segments[data_segment].sections[1].size;
  CHECK(fault_of(draft).contains("section __DATA,__data (0x2ff1 bytes at 0x100002010) is not inside mapped segment"));
}
