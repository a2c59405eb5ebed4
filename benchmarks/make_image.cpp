// Makes a large image for the benchmarks of loading and patching, and the patch list that belongs to it: the same bytes
// on every machine.
//
//   make_image OUT.dylib OUT.patches
//
// The image is shaped like a game's: functions of ordinary instructions, pointers in short runs with gaps between them,
// binds sorted by name as a linker sorts them, one name in ten exported by the image itself, long symbol names.
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "shared/files.h"
#include "support/macho_builder.h"
#include "tls/patch_list.h"

using namespace vlm;
using namespace vlm::test;

namespace {

constexpr std::uint64_t file_size = 200'000'000;
constexpr std::uint64_t rebase_count = 1'000'000;
constexpr std::uint64_t name_count = 5'000, binds_per_name = 10;
constexpr std::uint64_t symbol_count = 300'000;
constexpr std::uint64_t site_count = 20'000;

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
constexpr int data_segment = 1;

// mov rax, gs:[0x28]
constexpr unsigned char gs_load[] = {0x65, 0x48, 0x8B, 0x04, 0x25, 0x28, 0x00, 0x00, 0x00};
// mov rax, gs:[rax], too short for a jump, and test rax, rax. The list leaves these out: no benchmark runs the code,
// and Tessera makes its own.
constexpr unsigned char short_gs_load[] = {0x65, 0x48, 0x8B, 0x00, 0x48, 0x85, 0xC0};
// Its trampoline: rcx takes the game storage instead of gs; zeros at 8 and at the end are filled in by the loader.
constexpr unsigned char trampoline[] = {0x48, 0x8D, 0x64, 0x24, 0x80,                          // lea rsp, [rsp-0x80]
                                        0x51,                                                  // push rcx
                                        0x48, 0xB9, 0,    0,    0,    0,    0,    0,    0, 0,  // mov rcx, imm64
                                        0x48, 0x8B, 0x09,                                      // mov rcx, [rcx]
                                        0x65, 0x48, 0x8B, 0x09,                                // mov rcx, gs:[rcx]
                                        0x48, 0x8B, 0x41, 0x28,                                // mov rax, [rcx+0x28]
                                        0x59,                                                  // pop rcx
                                        0x48, 0x8D, 0xA4, 0x24, 0x80, 0x00, 0x00, 0x00,        // lea rsp, [rsp+0x80]
                                        0xFF, 0x25, 0,    0,    0,    0,                       // jmp [rip+0]
                                        0,    0,    0,    0,    0,    0,    0,    0};
constexpr std::uint16_t trampoline_slot = 8;

struct Text {
  Bytes code;
  std::vector<std::uint64_t> functions;  // offsets in the code
  std::vector<std::uint64_t> sites;
};

/// Functions of what compilers emit, one behind the other, with the gs loads spread over them and one short one for
/// every four. Data lies behind the code.
Text make_text(std::uint64_t size, Noise& noise) {
  // Opcode and ModRM, then so many bytes of noise: a displacement from rbp or rdi, an immediate.
  static constexpr struct {
    std::string_view bytes;
    unsigned noise;
  } plain[] = {
      {"\x48\x8b\x45", 1}, {"\x48\x89\x45", 1}, {"\x8b\x45", 1},     {"\x48\x89\xc7", 0},     {"\x48\x85\xc0", 0},
      {"\x31\xc9", 0},     {"\x48\x8b\x87", 4}, {"\x48\x01\xd8", 0}, {"\xf3\x0f\x10\x45", 1}, {"\xc7\x45", 5},
      {"\x48\x83\xf8", 1}, {"\x41\x89\xc6", 0}, {"\xb8", 4},         {"\x0f\xb6\x47", 1},     {"\xf2\x0f\x59\xc1", 0},
      {"\x4c\x8d\x65", 1}};
  Text text;
  Bytes& code = text.code;
  code.reserve(size);
  const auto put = [&](std::string_view bytes) { code.append(std::as_bytes(std::span(bytes))); };
  const auto distance = [&](std::uint64_t to) { code.u32(static_cast<std::uint32_t>(to - (code.size() + 4))); };
  const std::uint64_t site_distance = size / site_count;
  while (code.size() + 1024 < size) {
    const std::uint64_t function = code.size(), length = 40 + noise.below(400);
    text.functions.push_back(function);
    put("\x55\x48\x89\xe5");
    std::uint64_t earlier = code.size();  // the start of some instruction
    while (code.size() < function + length) {
      const std::uint64_t here = code.size();
      const auto kind = noise.below(24);
      if (text.sites.size() < site_count && here >= text.sites.size() * site_distance) {
        text.sites.push_back(here);
        code.append(std::as_bytes(std::span(gs_load)));
        if (text.sites.size() % 4 == 0) code.append(std::as_bytes(std::span(short_gs_load)));
      } else if (kind < std::size(plain)) {
        put(plain[kind].bytes);
        for (unsigned i = 0; i < plain[kind].noise; ++i) code.u8(noise.next());
      } else if (kind < 18) {  // a call of an earlier function
        put("\xe8");
        distance(text.functions[noise.below(text.functions.size())]);
      } else if (kind < 20) {  // a conditional jump back
        put("\x0f\x84");
        distance(earlier);
      } else if (kind < 21) {  // one over the next instruction
        put("\x75\x03\x48\x89\xf8");
      } else {  // a load and an address of data
        put(kind < 23 ? "\x48\x8b\x05" : "\x48\x8d\x3d");
        distance(size + noise.below(0x1000));
      }
      if (noise.below(4) == 0) earlier = here;
    }
    put("\x5d\xc3");
    while (code.size() % 16 != 0) code.u8(0x90);
  }
  code.resize(size);
  return text;
}

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

DataLayout lay_out_data(Noise& noise) {
  DataLayout data;
  std::uint64_t offset = 0;
  data.rebase.u8(REBASE_OPCODE_SET_TYPE_IMM | 1);
  data.rebase.u8(REBASE_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | data_segment).uleb(0);
  while (data.pointers.size() < rebase_count) {
    const std::uint64_t run = std::min(1 + noise.below(8), rebase_count - data.pointers.size());
    const std::uint64_t gap = 8 * (1 + noise.below(8));
    data.rebase.u8(REBASE_OPCODE_DO_REBASE_IMM_TIMES | run);
    data.rebase.u8(REBASE_OPCODE_ADD_ADDR_ULEB).uleb(gap);
    for (std::uint64_t i = 0; i < run; ++i) data.pointers.push_back(offset + 8 * i);
    offset += 8 * run + gap;
  }
  data.rebase.u8(REBASE_OPCODE_DONE);
  data.binds_offset = offset;
  data.size = detail::align(offset + 16 * name_count * binds_per_name, 0x1000);
  return data;
}

bool is_own(std::uint64_t name) { return name % 10 == 0; }

std::string import_name(std::uint64_t name) {
  return numbered(is_own(name) ? "_own_function_%llu" : "_imported_function_%llu", name);
}

Bytes make_bind_stream(std::uint64_t offset) {
  Bytes bind;
  bind.u8(BIND_OPCODE_SET_TYPE_IMM | 1);
  for (std::uint64_t name = 0; name < name_count; ++name) {
    bind.u8(is_own(name) ? BIND_OPCODE_SET_DYLIB_SPECIAL_IMM : BIND_OPCODE_SET_DYLIB_ORDINAL_IMM | 1);
    bind.u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).c_string(import_name(name));
    bind.u8(BIND_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | data_segment).uleb(offset + 16 * binds_per_name * name);
    for (std::uint64_t i = 0; i < binds_per_name; ++i) bind.u8(BIND_OPCODE_DO_BIND_ADD_ADDR_IMM_SCALED | 1);
  }
  return bind.u8(BIND_OPCODE_DONE);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) {
    std::fputs("usage: make_image OUT.dylib OUT.patches\n", stderr);
    return 1;
  }
  Noise noise;
  const DataLayout layout = lay_out_data(noise);
  ImageDraft draft;
  draft.rebase = layout.rebase;
  draft.bind = make_bind_stream(layout.binds_offset);
  draft.dylibs = {"/usr/lib/libSystem.B.dylib"};
  draft.symbols.reserve(symbol_count);
  std::uint64_t link_edit = draft.rebase.size() + draft.bind.size() + 0x2000;
  for (std::uint64_t i = 0; i < symbol_count; ++i) {
    draft.symbols.push_back({numbered("_Game_System_Class_Method_m%016llX", noise.next()), N_SECT, 0});
    link_edit += sizeof(Nlist64) + draft.symbols.back().name.size() + 1;
  }
  std::vector<ExportDraft> exports;
  for (std::uint64_t name = 0; name < name_count; ++name) {
    if (is_own(name)) exports.push_back({import_name(name), header_room + 16 * name});
  }
  draft.exports = export_trie(exports);
  link_edit += draft.exports.size();

  // Code takes what the other contents leave of the file.
  const std::uint64_t others = link_edit + layout.size + 2 * header_room;
  const std::uint64_t text_size = detail::align(file_size - others, 0x1000);
  SegmentDraft text{"__TEXT", text_vmaddr, header_room + text_size, VM_PROT_READ | VM_PROT_EXECUTE, {}, {}};
  Text made = make_text(text_size, noise);
  std::vector<PatchEntry> sites;
  for (const std::uint64_t at : made.sites) {
    sites.push_back({static_cast<std::uint32_t>(header_room + at), std::as_bytes(std::span(gs_load)), trampoline_slot,
                     std::as_bytes(std::span(trampoline))});
  }
  const auto function_at = [&](std::uint64_t i) {
    return text_vmaddr + header_room + made.functions[i % made.functions.size()];
  };
  for (std::uint64_t i = 0; i < draft.symbols.size(); ++i) draft.symbols[i].n_value = function_at(i);
  text.content = std::move(made.code);
  text.sections = {{"__TEXT", "__text", text_vmaddr + header_room, text_size}};

  const std::uint64_t data_vmaddr = text_vmaddr + header_room + text_size;
  SegmentDraft data{"__DATA", data_vmaddr, layout.size, VM_PROT_READ | VM_PROT_WRITE, {}, {}};
  data.content.resize(layout.size);
  for (const std::uint64_t at : layout.pointers) data.content.put_at(at, function_at(noise.next()));
  data.sections = {{"__DATA", "__data", data_vmaddr, layout.size}};
  draft.segments = {std::move(text), std::move(data)};
  draft.linkedit_vmaddr = data_vmaddr + layout.size;

  Bytes image = build_image(draft);
  constexpr std::size_t flags_of_text = sizeof(MachHeader64) + sizeof(SegmentCommand64) + offsetof(Section64, flags);
  image.put_at(flags_of_text, std::uint32_t{S_ATTR_PURE_INSTRUCTIONS | S_ATTR_SOME_INSTRUCTIONS});
  if (!tools::write_file(arguments[1], image) || !tools::write_file(arguments[2], write_patch_list(sites))) {
    std::fprintf(stderr, "make_image: cannot write %s and %s\n", arguments[1], arguments[2]);
    return 1;
  }
  std::printf("%s: %zu bytes, %zu rebases, %zu patch sites\n", arguments[1], image.size(), layout.pointers.size(),
              sites.size());
}
