// Breaks a sound image in thousands of ways, the same ones in every run, and takes each through the portable core.
// Built with AddressSanitizer and UndefinedBehaviorSanitizer, which judge every read and write; this program judges
// that each image ends in a load or in a fault that says something, after work that the image's size bounds.
//
//   mutate_images              run all
//   mutate_images --seeds DIR  write sound input for the fuzzers to start with, a folder for each
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "fuzz/image_run.h"
#include "support/good_image.h"

using namespace vlm;
using namespace vlm::test;

namespace {

constexpr std::uint64_t huge = std::uint64_t{1} << 60, minus_8 = ~std::uint64_t{7}, max_extent = 1ull << 32;

int failures;

enum class Expect { any, load, refuse };

void check(const char* what, std::uint64_t offset, std::uint64_t value, std::span<const std::byte> file,
           Expect expect = Expect::any) {
  const ImageRun run = run_image(file, max_extent);
  const bool good = run.fault.empty();
  // A rebase, a bind and a lazy-bind stream, each at most once over the image; a bind asks for one symbol.
  const char* const fault = good && !run.placed                  ? "read but too large to place"
                            : !good && run.fault.size() < 12     ? "refused without saying why"
                            : run.patched > 3 * (run.extent / 8) ? "patched more than the image holds"
                            : run.looked_up > run.patched + 3    ? "looked up more than it bound"
                            : expect == Expect::load && !good    ? "refused"
                            : expect == Expect::refuse && good   ? "loaded"
                                                                 : nullptr;
  if (fault == nullptr) return;
  std::printf("FAILED %s at 0x%llx: 0x%llx: %s (fault \"%s\", %llu patched)\n", what, 0ull + offset, 0ull + value,
              fault, run.fault.c_str(), 0ull + run.patched);
  ++failures;
}

/// Every length up to the end of the commands and steps through the rest; every field of the header and the commands,
/// at every width, with values that overflow what is computed from it; bits of these, the streams and the tables.
void break_file(const Bytes& good) {
  const auto check_with = [&](const char* what, std::size_t offset, auto value) {  // another value in one place
    Bytes file = good;
    file.put_at(offset, value);
    check(what, offset, static_cast<std::uint64_t>(value), file);
  };
  MachHeader64 header;
  std::memcpy(&header, good.data(), sizeof header);
  const std::size_t end = sizeof header + header.sizeofcmds;
  for (std::size_t size = 0; size < good.size(); size += size < end ? 1 : 61) {
    check("cut", size, size, std::span(good).first(size), Expect::refuse);
  }
  for (std::size_t offset = 0; offset < end; offset += 4) {
    for (const std::uint32_t value : {0u, 1u, 7u, 0x48u, 0x1000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
      check_with("u32", offset, value);
    }
    for (const std::uint64_t value : {huge, huge << 3, minus_8 + 7, minus_8, max_extent, max_extent - 0x1000,
                                      text_vmaddr + 1, std::uint64_t{0x7FFFFFFFFFFFFFFF}}) {
      if (offset % 8 == 0) check_with("u64", offset, value);
    }
  }
  for (std::size_t offset = 0; offset < good.size(); ++offset) {
    if (offset == end) offset = 0x3000;
    for (const unsigned mask : {0x01u, 0x08u, 0x10u, 0x80u, 0xFFu}) {
      check_with("flip", offset, good[offset] ^ std::byte(mask));
    }
  }
}

/// As many sections as there may be, and one more.
void fill_up() {
  // They do not fit the room of a draft's commands with names of their own; they go into one segment alone.
  for (const std::uint32_t count : {128, 129}) {
    SegmentDraft segment{"__DATA", 0x1000, 0x1000, VM_PROT_READ, {}, {}};
    segment.sections.resize(count, {"__DATA", "__s", 0x1000, 0});
    const Bytes command = segment_command(segment, 0, 0);
    Bytes file;
    file.put(MachHeader64{MH_MAGIC_64, CPU_TYPE_X86_64, 3, 6, 1, static_cast<std::uint32_t>(command.size()), 0, 0});
    check("sections", 0, count, file.append(command), count == 128 ? Expect::load : Expect::refuse);
  }
}

/// Every opcode byte after a place and a symbol, followed by numbers that are small or huge.
void every_opcode() {
  for (unsigned byte = 0; byte < 256; ++byte) {
    for (const std::uint64_t number : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{0x3000}, huge, minus_8}) {
      ImageDraft draft = good_draft(), binding = draft;
      draft.rebase = Bytes().u8(0x22).u8(8).u8(byte).uleb(number).uleb(number).u8(0x5F);
      check("rebase opcode", byte, number, build_image(draft));
      binding.bind = Bytes().text("\x40_malloc\0\x72\x08"sv).u8(byte).uleb(number).uleb(number).u8(0x90);
      binding.lazy_bind = Bytes().text("\x40_malloc\0\x72\x10"sv).u8(byte).uleb(number).u8(0x90).u8(byte);
      check("bind opcode", byte, number, build_image(binding));
    }
  }
}

int write_seeds(const std::filesystem::path& folder) {
  const ImageDraft draft = good_draft();
  const Bytes good = build_image(draft);
  const auto write = [&](const char* target, const char* name, const Bytes& bytes) {
    std::filesystem::create_directories(folder / target);
    std::ofstream(folder / target / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  };
  write("fuzz_inspect", "thin", good);
  write("fuzz_image", "universal", build_universal({{CPU_TYPE_X86_64, good}}));
  // A library with one family of one row: headers, the section .shims, and one for what it points to.
  Bytes library;
  library.u16(0x5A4D).pad_to(0x3C).u32(0x40).u32(0x4550).u16(0x8664).u16(2).pad_to(0x54).u16(32).u16(0x2022);
  library.u16(0x20B).pad_to(0x70).u64(0x180000000).text(".shims").pad_to(0x80).u32(24).u32(0x1000).u32(24).u32(0xE0);
  library.pad_to(0xA0).text(".rdata").pad_to(0xA8).u32(48).u32(0x2000).u32(48).u32(0xF8).pad_to(0xE0);
  library.u64(0x180002000).u64(0x180002020).u32(1).u32(1).c_string("memory").pad_to(0x108).c_string("_malloc");
  library.pad_to(0x118).u64(0x180002010).u64(0x180002000);
  write("fuzz_inspect", "library", library);
  write("fuzz_fixups", "bind", Bytes().u8(draft.rebase.size()).u8(0).append(draft.rebase).append(draft.bind));
  // A compressed page with one encoding of its own, a regular page; two common encodings, one function with an LSDA.
  Bytes unwind;
  unwind.u32(0x1050).u32(1).u32(28).u32(2).u32(36).u32(1).u32(40).u32(3).u32(0x01000000).u32(0x51010001).u32(0x2000);
  unwind.u32(0x1000).u32(84).u32(76).u32(0x1100).u32(108).u32(84).u32(0x1200).u32(0).u32(84).u32(0x1040).u32(0x1800);
  unwind.u32(3).u16(12).u16(2).u16(20).u16(1).u32(0x00000000).u32(0x01000040).u32(0x030A1800);
  unwind.u32(2).u16(8).u16(1).u32(0x1100).u32(0x02061C48);
  write("fuzz_unwind_info", "two_pages", unwind);
  // A function at 4 that calls at 6, lands at 10 and catches by a type, then everything, with a cleanup.
  Bytes lsda;
  lsda.u16(16).u16(4).u16(6).pad_to(22).u8(0xFF).u8(0x9B).u8(24).u8(1).u8(8);
  lsda.u8(0).u8(4).u8(6).u8(5).u8(4).u8(8).u8(0).u8(0).u8(0).u8(0).u8(2).u8(0x7D).u8(1).u8(0x7D);
  lsda.pad_to(22 + 19).u32(0).u32(0xFFFFFFE0).pad_to(64);
  write("fuzz_lsda", "two_clauses", lsda);
  write("fuzz_cloud_file", "three_kinds",
        Bytes().text("s\tname\tA\\tb\\n\ni\tgames\t42\nd\tratio\t-1.5e-300\r\ns\tname\tagain\n"));
  // The kind of the controller, then a report by radio.
  write("fuzz_hid_reports", "dualshock4", Bytes().u8(1).u8(0x11).pad_to(79));
  write("fuzz_hid_reports", "dualsense", Bytes().u8(2).u8(0x31).pad_to(79));
  write("fuzz_export_trie", "trie", Bytes().u8(10).text("_game_stop").append(draft.exports));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--seeds") == 0) return write_seeds(argv[2]);
  const Bytes good = build_image(good_draft());
  failures += run_image(good, max_extent).patched != good_rebases + good_binds + good_lazy_binds;
  check("the sound image", 0, 0, good, Expect::load);
  const Bytes universal = build_universal({{CPU_TYPE_X86_64, good}, {0x0100000C, Bytes().u64(0)}});
  check("universal", 0, 0, universal, Expect::load);
  for (std::size_t size = 0; size < 64; ++size) check("cut universal", size, size, std::span(universal).first(size));

  break_file(good);
  fill_up();
  every_opcode();
  return failures == 0 ? 0 : 1;
}
