// Makes Mach-O images from a description: what a linker would write, or deliberately not.
//
//   0                header, load commands, padded to header_room
//   header_room      contents of the segments, each at a multiple of 0x1000
//   link_edit        rebase, bind, weak-bind, lazy-bind streams, export trie, symbol table, string table
//
// The first segment takes the file from 0 on, as __TEXT does: its contents start at vmaddr + header_room.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "macho/format.h"

namespace vlm::test {

inline constexpr std::uint64_t header_room = 0x1000, file_alignment = 0x1000;

/// Bytes in the making.
class Bytes : public std::vector<std::byte> {
 public:
  using std::vector<std::byte>::vector;

  Bytes& u8(std::uint64_t value) { return put(static_cast<std::uint8_t>(value)); }
  Bytes& u16(std::uint64_t value) { return put(static_cast<std::uint16_t>(value)); }
  Bytes& u32(std::uint64_t value) { return put(static_cast<std::uint32_t>(value)); }
  Bytes& u64(std::uint64_t value) { return put(value); }
  Bytes& big32(std::uint64_t value) { return put(std::byteswap(static_cast<std::uint32_t>(value))); }

  Bytes& uleb(std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) u8(value | 0x80);
    return u8(value);
  }
  Bytes& sleb(std::int64_t value) {
    for (; value < -0x40 || value >= 0x40; value >>= 7) u8(static_cast<std::uint64_t>(value) | 0x80);
    return u8(value & 0x7F);
  }

  Bytes& text(std::string_view characters) { return append(std::as_bytes(std::span(characters))); }
  Bytes& c_string(std::string_view characters) { return text(characters).u8(0); }
  Bytes& append(std::span<const std::byte> bytes) {
    insert(end(), bytes.begin(), bytes.end());
    return *this;
  }
  Bytes& pad_to(std::uint64_t size) {
    resize(std::max<std::size_t>(this->size(), size));
    return *this;
  }

  template <class T>
  Bytes& put(const T& value) {
    return append(std::as_bytes(std::span(&value, 1)));
  }
  template <class T>
  void put_at(std::size_t offset, const T& value) {
    std::memcpy(data() + offset, &value, sizeof value);
  }
};

struct SectionDraft {
  std::string segment, name;
  std::uint64_t addr, size;
  std::uint32_t flags = 0;
};

struct SegmentDraft {
  std::string name;
  std::uint64_t vmaddr = 0, vmsize = 0;
  std::uint32_t initprot = VM_PROT_READ | VM_PROT_WRITE;
  Bytes content;
  std::vector<SectionDraft> sections;
};

struct SymbolDraft {
  std::string name;
  std::uint8_t n_type = N_SECT;
  std::uint64_t n_value = 0;
};

struct ImageDraft {
  std::vector<SegmentDraft> segments;
  std::vector<std::string> dylibs;
  Bytes rebase, bind, weak_bind, lazy_bind, exports;
  std::vector<SymbolDraft> symbols;
  std::uint64_t linkedit_vmaddr = 0;  // not 0: a segment __LINKEDIT holds the streams and tables, as a linker does it
  std::vector<Bytes> more_commands;   // whole load commands, put behind the others
};

struct ExportDraft {
  std::string name;
  std::uint64_t address = 0, flags = 0;  // from the image's base
};

namespace detail {
inline std::uint64_t align(std::uint64_t value, std::uint64_t to = file_alignment) {
  return (value + to - 1) / to * to;
}
}  // namespace detail

/// Adds a node for what these names, which are sorted and begin with the same `depth` characters, go on with; then a
/// node for each next character. Where a child lies takes four bytes of a ULEB, whatever its size.
inline void add_trie_node(Bytes& trie, std::span<const ExportDraft> names, std::size_t depth) {
  Bytes information;
  if (!names.empty() && names[0].name.size() == depth) {
    information.uleb(names[0].flags).uleb(names[0].address);
    names = names.subspan(1);
  }
  std::map<char, std::span<const ExportDraft>> children;
  for (const ExportDraft& each : names) {
    auto& child = children[each.name[depth]];
    child = {child.empty() ? &each : child.data(), child.size() + 1};
  }
  trie.uleb(information.size()).append(information).u8(children.size());
  std::size_t place = trie.size();
  for (const auto& [edge, child] : children) trie.c_string({&edge, 1}).u32(0x00808080);
  for (const auto& [edge, child] : children) {
    for (int i = 0; i < 4; ++i) trie[place + 2 + i] |= static_cast<std::byte>(trie.size() >> 7 * i & 0x7F);
    place += 6;
    add_trie_node(trie, child, depth + 1);
  }
}

inline Bytes export_trie(std::vector<ExportDraft> exports) {
  std::ranges::sort(exports, {}, &ExportDraft::name);
  Bytes trie;
  add_trie_node(trie, exports, 0);
  return trie;
}

inline Bytes dylib_command(std::uint32_t cmd, std::string_view install_name) {
  DylibCommand command{cmd, 0, sizeof(DylibCommand), 2, 0x10000, 0x10000};
  command.cmdsize = static_cast<std::uint32_t>(detail::align(sizeof command + install_name.size() + 1, 8));
  Bytes out;
  return out.put(command).c_string(install_name).pad_to(command.cmdsize);
}

inline Bytes segment_command(const SegmentDraft& segment, std::uint64_t fileoff, std::uint64_t filesize) {
  const auto nsects = static_cast<std::uint32_t>(segment.sections.size());
  const auto cmdsize = static_cast<std::uint32_t>(sizeof(SegmentCommand64) + nsects * sizeof(Section64));
  SegmentCommand64 command{LC_SEGMENT_64,    cmdsize, {}, segment.vmaddr, segment.vmsize, fileoff, filesize, 7,
                           segment.initprot, nsects,  0};
  segment.name.copy(command.segname, sizeof command.segname);
  Bytes out;
  out.put(command);
  for (const SectionDraft& draft : segment.sections) {
    Section64 section{};
    draft.name.copy(section.sectname, sizeof section.sectname);
    draft.segment.copy(section.segname, sizeof section.segname);
    section.addr = draft.addr;
    section.flags = draft.flags;
    section.size = draft.size;
    section.offset = static_cast<std::uint32_t>(fileoff + draft.addr - segment.vmaddr);
    out.put(section);
  }
  return out;
}

inline Bytes build_image(const ImageDraft& draft) {
  Bytes body;  // everything behind the header and the commands
  const auto body_end = [&] { return header_room + body.size(); };

  std::vector<Bytes> commands;
  bool covers_header = true;  // true for the first segment that has contents
  for (const SegmentDraft& segment : draft.segments) {
    body.pad_to(detail::align(body_end()) - header_room);
    const bool empty = segment.content.empty();
    const std::uint64_t fileoff = empty || covers_header ? 0 : body_end();
    body.append(segment.content);
    commands.push_back(segment_command(segment, fileoff, empty ? 0 : body_end() - fileoff));
    covers_header = covers_header && empty;
  }

  body.pad_to(detail::align(body_end()) - header_room);
  const std::uint64_t link_edit = body_end();
  const auto add_table = [&](Bytes& command, const Bytes& table) {
    command.u32(body_end()).u32(table.size());
    body.append(table).pad_to(detail::align(body.size(), 8));
  };
  Bytes info = Bytes().u32(LC_DYLD_INFO_ONLY).u32(sizeof(DyldInfoCommand));
  for (const auto stream :
       {&ImageDraft::rebase, &ImageDraft::bind, &ImageDraft::weak_bind, &ImageDraft::lazy_bind, &ImageDraft::exports}) {
    add_table(info, draft.*stream);
  }
  Bytes symtab = Bytes().u32(LC_SYMTAB).u32(sizeof(SymtabCommand)).u32(body_end()).u32(draft.symbols.size());
  Bytes strings = Bytes().c_string(" ");
  for (const SymbolDraft& symbol : draft.symbols) {
    body.put(Nlist64{static_cast<std::uint32_t>(strings.size()), symbol.n_type, 1, 0, symbol.n_value});
    strings.c_string(symbol.name);
  }
  add_table(symtab, strings);
  commands.insert(commands.end(), {info, symtab});

  if (draft.linkedit_vmaddr != 0) {
    const std::uint64_t size = body_end() - link_edit;
    const SegmentDraft linkedit{"__LINKEDIT", draft.linkedit_vmaddr, detail::align(size), VM_PROT_READ, {}, {}};
    commands.insert(commands.begin() + static_cast<std::ptrdiff_t>(draft.segments.size()),
                    segment_command(linkedit, link_edit, size));
  }
  commands.push_back(dylib_command(LC_ID_DYLIB, "@rpath/image.dylib"));
  for (const std::string& name : draft.dylibs) commands.push_back(dylib_command(LC_LOAD_DYLIB, name));
  commands.insert(commands.end(), draft.more_commands.begin(), draft.more_commands.end());

  Bytes all;
  for (const Bytes& command : commands) all.append(command);
  MachHeader64 header{MH_MAGIC_64, CPU_TYPE_X86_64, 3, 6 /* MH_DYLIB */, 0, 0, 0, 0};
  header.ncmds = static_cast<std::uint32_t>(commands.size());
  header.sizeofcmds = static_cast<std::uint32_t>(all.size());
  Bytes file = Bytes().put(header).append(all);
  if (file.size() > header_room) return {};  // more commands than the layout has room for: a mistake of the test
  return file.pad_to(header_room).append(body);
}

/// A universal file of these slices, each a cputype and its bytes at a multiple of 0x1000.
inline Bytes build_universal(const std::vector<std::pair<std::uint32_t, Bytes>>& slices) {
  Bytes file, body;
  file.big32(FAT_MAGIC).big32(slices.size());
  for (const auto& [cputype, bytes] : slices) {
    body.pad_to(detail::align(body.size()));
    file.big32(cputype).big32(3).big32(file_alignment + body.size()).big32(bytes.size()).big32(12);
    body.append(bytes);
  }
  return file.pad_to(file_alignment).append(body);
}

}  // namespace vlm::test
