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
#include <tuple>
#include <utility>
#include <vector>

#include "macho/format.h"

namespace vlm::test {

inline constexpr std::uint64_t header_room = 0x1000;
inline constexpr std::uint64_t file_alignment = 0x1000;

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
  std::string segment;
  std::string name;
  std::uint64_t addr;
  std::uint64_t size;
};

struct SegmentDraft {
  std::string name;
  std::uint64_t vmaddr = 0;
  std::uint64_t vmsize = 0;
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
  std::uint64_t address = 0;  // from the image's base
  std::uint64_t flags = 0;
};

namespace detail {

inline std::uint64_t align(std::uint64_t value, std::uint64_t to) { return (value + to - 1) / to * to; }

template <std::size_t N>
void put_name(char (&field)[N], std::string_view name) {
  std::memset(field, 0, N);
  std::memcpy(field, name.data(), std::min(N, name.size()));
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
  SegmentCommand64 command{};
  command.cmd = LC_SEGMENT_64;
  command.nsects = static_cast<std::uint32_t>(segment.sections.size());
  command.cmdsize = static_cast<std::uint32_t>(sizeof command + command.nsects * sizeof(Section64));
  detail::put_name(command.segname, segment.name);
  command.vmaddr = segment.vmaddr;
  command.vmsize = segment.vmsize;
  command.fileoff = fileoff;
  command.filesize = filesize;
  command.maxprot = 7;
  command.initprot = segment.initprot;
  Bytes out;
  out.put(command);
  for (const SectionDraft& draft : segment.sections) {
    Section64 section{};
    detail::put_name(section.sectname, draft.name);
    detail::put_name(section.segname, draft.segment);
    section.addr = draft.addr;
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
    if (segment.content.empty()) {
      commands.push_back(segment_command(segment, 0, 0));
      continue;
    }
    body.pad_to(detail::align(body_end(), file_alignment) - header_room);
    const std::uint64_t fileoff = covers_header ? 0 : body_end();
    body.append(segment.content);
    commands.push_back(segment_command(segment, fileoff, body_end() - fileoff));
    covers_header = false;
  }

  body.pad_to(detail::align(body_end(), file_alignment) - header_room);
  const std::uint64_t link_edit = body_end();
  const auto add_table = [&](std::span<const std::byte> table) {
    const auto offset = static_cast<std::uint32_t>(body_end());
    body.append(table).pad_to(detail::align(body.size(), 8));
    return std::pair(offset, static_cast<std::uint32_t>(table.size()));
  };
  DyldInfoCommand info{};
  info.cmd = LC_DYLD_INFO_ONLY;
  info.cmdsize = sizeof info;
  std::tie(info.rebase_off, info.rebase_size) = add_table(draft.rebase);
  std::tie(info.bind_off, info.bind_size) = add_table(draft.bind);
  std::tie(info.weak_bind_off, info.weak_bind_size) = add_table(draft.weak_bind);
  std::tie(info.lazy_bind_off, info.lazy_bind_size) = add_table(draft.lazy_bind);
  std::tie(info.export_off, info.export_size) = add_table(draft.exports);
  commands.push_back(Bytes().put(info));

  Bytes symbols, strings;
  strings.c_string(" ");
  for (const SymbolDraft& symbol : draft.symbols) {
    symbols.put(Nlist64{static_cast<std::uint32_t>(strings.size()), symbol.n_type, 1, 0, symbol.n_value});
    strings.c_string(symbol.name);
  }
  SymtabCommand symtab{LC_SYMTAB, sizeof(SymtabCommand), 0, static_cast<std::uint32_t>(draft.symbols.size()), 0, 0};
  symtab.symoff = add_table(symbols).first;
  std::tie(symtab.stroff, symtab.strsize) = add_table(strings);
  commands.push_back(Bytes().put(symtab));

  if (draft.linkedit_vmaddr != 0) {
    const std::uint64_t size = body_end() - link_edit;
    const SegmentDraft linkedit{
        "__LINKEDIT", draft.linkedit_vmaddr, detail::align(size, file_alignment), VM_PROT_READ, {}, {}};
    commands.insert(commands.begin() + static_cast<std::ptrdiff_t>(draft.segments.size()),
                    segment_command(linkedit, link_edit, size));
  }
  commands.push_back(dylib_command(LC_ID_DYLIB, "@rpath/image.dylib"));
  for (const std::string& name : draft.dylibs) commands.push_back(dylib_command(LC_LOAD_DYLIB, name));
  commands.insert(commands.end(), draft.more_commands.begin(), draft.more_commands.end());

  MachHeader64 header{
      MH_MAGIC_64, CPU_TYPE_X86_64, 3, 6 /* MH_DYLIB */, static_cast<std::uint32_t>(commands.size()), 0, 0, 0};
  Bytes file;
  for (const Bytes& command : commands) header.sizeofcmds += static_cast<std::uint32_t>(command.size());
  file.put(header);
  for (const Bytes& command : commands) file.append(command);
  if (file.size() > header_room) return {};  // more commands than the layout has room for: a mistake of the test
  return file.pad_to(header_room).append(body);
}

struct SliceDraft {
  std::uint32_t cputype;
  Bytes bytes;
};

/// A universal file of these slices, each at a multiple of 0x1000.
inline Bytes build_universal(const std::vector<SliceDraft>& slices) {
  Bytes file;
  file.big32(FAT_MAGIC).big32(slices.size());
  std::uint64_t offset = file_alignment;
  for (const SliceDraft& slice : slices) {
    file.big32(slice.cputype).big32(3).big32(offset).big32(slice.bytes.size()).big32(12);
    offset = detail::align(offset + slice.bytes.size(), file_alignment);
  }
  for (const SliceDraft& slice : slices) {
    file.pad_to(detail::align(file.size(), file_alignment)).append(slice.bytes);
  }
  return file;
}

}  // namespace vlm::test
