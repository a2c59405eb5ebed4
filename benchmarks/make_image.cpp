// Makes a large image for the loader's benchmark, and the patch list that belongs to it. The same numbers give the
// same bytes on every machine.
//
//   make_image OUT.dylib OUT.patches [MEGABYTES REBASES BINDS NAMES SYMBOLS SITES]
//
// The image is shaped like a game's: pointers in short runs with gaps between them, binds sorted by name as a linker
// sorts them, one name in ten exported by the image itself, long symbol names.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "support/macho_builder.h"
#include "tls/patch_list.h"

using namespace vlm;
using namespace vlm::test;

namespace {

struct Counts {
  std::uint64_t megabytes = 200;
  std::uint64_t rebases = 1'000'000;
  std::uint64_t binds = 50'000;
  std::uint64_t names = 5'000;
  std::uint64_t symbols = 300'000;
  std::uint64_t sites = 20'000;
};

/// xorshift64: filler that does not compress or repeat.
class Noise {
 public:
  std::uint64_t next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    return state_ ^= state_ << 17;
  }
  std::uint64_t below(std::uint64_t bound) { return next() % bound; }

 private:
  std::uint64_t state_ = 0x9E3779B97F4A7C15;
};

constexpr std::uint64_t text_vmaddr = 0x100000000;
constexpr std::uint64_t site_distance = 64;
constexpr int data_segment = 1;

// mov rax, gs:[0x28]
constexpr unsigned char gs_load[] = {0x65, 0x48, 0x8B, 0x04, 0x25, 0x28, 0x00, 0x00, 0x00};
// Its trampoline: rcx takes the game storage instead of gs; zeros at 8 and at the end are filled in by the loader.
constexpr unsigned char trampoline[] = {
    0x48, 0x8D, 0x64, 0x24, 0x80,                    // lea rsp, [rsp-0x80]
    0x51,                                            // push rcx
    0x48, 0xB9, 0, 0, 0, 0, 0, 0, 0, 0,              // mov rcx, imm64
    0x48, 0x8B, 0x09,                                // mov rcx, [rcx]
    0x65, 0x48, 0x8B, 0x09,                          // mov rcx, gs:[rcx]
    0x48, 0x8B, 0x41, 0x28,                          // mov rax, [rcx+0x28]
    0x59,                                            // pop rcx
    0x48, 0x8D, 0xA4, 0x24, 0x80, 0x00, 0x00, 0x00,  // lea rsp, [rsp+0x80]
    0xFF, 0x25, 0, 0, 0, 0,                          // jmp [rip+0]
    0, 0, 0, 0, 0, 0, 0, 0};
constexpr std::uint16_t trampoline_slot = 8;

std::string numbered(const char* format, std::uint64_t number) {
  char text[96];
  std::snprintf(text, sizeof text, format, static_cast<unsigned long long>(number));
  return text;
}

/// Places for the pointers of __DATA: rebases in runs of 1 to 8 with gaps, then one place for each bind.
struct DataLayout {
  Bytes rebase;
  std::vector<std::uint64_t> pointers;
  std::uint64_t binds_offset;
  std::uint64_t size;
};

DataLayout lay_out_data(const Counts& counts, Noise& noise) {
  DataLayout data;
  std::uint64_t offset = 0;
  data.rebase.u8(REBASE_OPCODE_SET_TYPE_IMM | 1);
  data.rebase.u8(REBASE_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | data_segment).uleb(0);
  while (data.pointers.size() < counts.rebases) {
    const std::uint64_t run = std::min(1 + noise.below(8), counts.rebases - data.pointers.size());
    const std::uint64_t gap = 8 * (1 + noise.below(8));
    data.rebase.u8(REBASE_OPCODE_DO_REBASE_IMM_TIMES | run);
    data.rebase.u8(REBASE_OPCODE_ADD_ADDR_ULEB).uleb(gap);
    for (std::uint64_t i = 0; i < run; ++i) data.pointers.push_back(offset + 8 * i);
    offset += 8 * run + gap;
  }
  data.rebase.u8(REBASE_OPCODE_DONE);
  data.binds_offset = offset;
  data.size = detail::align(offset + 16 * counts.binds, 0x1000);
  return data;
}

bool is_own(std::uint64_t name) { return name % 10 == 0; }

std::string import_name(std::uint64_t name) {
  return numbered(is_own(name) ? "_own_function_%llu" : "_imported_function_%llu", name);
}

Bytes make_bind_stream(const Counts& counts, std::uint64_t offset) {
  Bytes bind;
  bind.u8(BIND_OPCODE_SET_TYPE_IMM | 1);
  const std::uint64_t per_name = counts.names == 0 ? 0 : counts.binds / counts.names;
  for (std::uint64_t name = 0; per_name != 0 && name < counts.names; ++name) {
    bind.u8(is_own(name) ? BIND_OPCODE_SET_DYLIB_SPECIAL_IMM : BIND_OPCODE_SET_DYLIB_ORDINAL_IMM | 1);
    bind.u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).c_string(import_name(name));
    bind.u8(BIND_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | data_segment).uleb(offset + 16 * per_name * name);
    for (std::uint64_t i = 0; i < per_name; ++i) bind.u8(BIND_OPCODE_DO_BIND_ADD_ADDR_IMM_SCALED | 1);
  }
  return bind.u8(BIND_OPCODE_DONE);
}

bool write_file(const char* path, std::span<const std::byte> bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out.flush());
}

}  // namespace

int main(int argc, char** argv) {
  Counts counts;
  std::uint64_t* const fields[] = {&counts.megabytes, &counts.rebases, &counts.binds,
                                   &counts.names,     &counts.symbols, &counts.sites};
  if (argc < 3 || argc > 9) {
    std::fputs("usage: make_image OUT.dylib OUT.patches [MEGABYTES REBASES BINDS NAMES SYMBOLS SITES]\n", stderr);
    return 1;
  }
  for (int i = 3; i < argc; ++i) *fields[i - 3] = std::strtoull(argv[i], nullptr, 10);

  Noise noise;
  const DataLayout layout = lay_out_data(counts, noise);
  ImageDraft draft;
  draft.rebase = layout.rebase;
  draft.bind = make_bind_stream(counts, layout.binds_offset);
  draft.dylibs = {"/usr/lib/libSystem.B.dylib"};
  draft.symbols.reserve(counts.symbols);
  std::uint64_t link_edit = draft.rebase.size() + draft.bind.size() + 0x2000;
  for (std::uint64_t i = 0; i < counts.symbols; ++i) {
    draft.symbols.push_back({numbered("_Game_System_Class_Method_m%016llX", noise.next()), N_SECT,
                             text_vmaddr + header_room + 16 * i});
    link_edit += sizeof(Nlist64) + draft.symbols.back().name.size() + 1;
  }
  std::vector<ExportDraft> exports;
  for (std::uint64_t name = 0; name < counts.names; ++name) {
    if (is_own(name)) exports.push_back({import_name(name), header_room + 16 * name});
  }
  draft.exports = export_trie(exports);
  link_edit += draft.exports.size();

  // Code takes what the other contents leave of the file.
  const std::uint64_t others = link_edit + layout.size + 2 * header_room;
  const std::uint64_t wanted = counts.megabytes * 1'000'000;
  std::uint64_t text_size = std::max(wanted > others ? wanted - others : 0, counts.sites * site_distance + 0x1000);
  text_size = detail::align(text_size, 0x1000);
  SegmentDraft text{"__TEXT", text_vmaddr, header_room + text_size, VM_PROT_READ | VM_PROT_EXECUTE, {}, {}};
  text.content.resize(text_size);
  for (std::size_t at = 0; at < text_size; at += 8) text.content.put_at(at, noise.next());
  std::vector<PatchEntry> sites;
  for (std::uint64_t i = 0; i < counts.sites; ++i) {
    const std::uint64_t at = i * (text_size / counts.sites / site_distance * site_distance);
    text.content.put_at(at, gs_load);
    sites.push_back({static_cast<std::uint32_t>(header_room + at), std::as_bytes(std::span(gs_load)), trampoline_slot,
                     std::as_bytes(std::span(trampoline))});
  }
  text.sections = {{"__TEXT", "__text", text_vmaddr + header_room, text_size}};

  const std::uint64_t data_vmaddr = text_vmaddr + header_room + text_size;
  SegmentDraft data{"__DATA", data_vmaddr, layout.size, VM_PROT_READ | VM_PROT_WRITE, {}, {}};
  data.content.resize(layout.size);
  for (const std::uint64_t at : layout.pointers) data.content.put_at(at, text_vmaddr + noise.below(text_size));
  data.sections = {{"__DATA", "__data", data_vmaddr, layout.size}};
  draft.segments = {std::move(text), std::move(data)};
  draft.linkedit_vmaddr = data_vmaddr + layout.size;

  const Bytes image = build_image(draft);
  if (!write_file(argv[1], image) || !write_file(argv[2], write_patch_list(sites))) {
    std::perror("make_image");
    return 1;
  }
  std::printf("%s: %zu bytes, %zu rebases, %zu patch sites\n", argv[1], image.size(), layout.pointers.size(),
              sites.size());
  return 0;
}
