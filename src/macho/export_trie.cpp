// Export trie: symbol name -> address, the way dyld looks names up.
// Look-ups walk the bytes in place: an image exports tens of thousands of names and a run asks for a few hundred, so a
// map would cost more to build than it saves.
//
//   root --"_ba"--> node --"r"--> _bar      a name is the concatenation of the edges from the root to a terminal node
//                        --"z"--> _baz      node: ULEB size of the terminal information, the information,
//                                           a byte of children, each a NUL-terminated edge and the ULEB of its node
//
// A walk through a tree never meets a byte twice. A walk that has read as many bytes as the trie holds goes in circles,
// or through nodes that overlap, and finds nothing.

#include <cstring>

#include "macho/format.h"
#include "macho/queries.h"
#include "support/byte_reader.h"

namespace vlm {
namespace {

/// Run-time address from a node's terminal information, or 0.
std::uint64_t terminal_address(const MachImage& image, ByteReader in) {
  const std::uint64_t flags = in.uleb128();
  if (flags & EXPORT_SYMBOL_FLAGS_REEXPORT) return 0;
  const std::uint64_t address = in.uleb128();  // the stub, for a stub-and-resolver entry
  const bool absolute = (flags & EXPORT_SYMBOL_FLAGS_KIND_MASK) == EXPORT_SYMBOL_FLAGS_KIND_ABSOLUTE;
  return absolute ? address : image.base + address;
}

}  // namespace

std::uint64_t macho_find_export(const MachImage& image, std::string_view name, std::uint64_t* bytes_read) {
  if (image.export_size == 0) return 0;
  const auto trie = image.file_range(image.export_off, image.export_size);
  std::uint64_t walked = 0;
  std::uint64_t address = 0;
  for (std::uint64_t node = 0; walked < trie.size() && node < trie.size();) {
    ByteReader in(trie, node);
    const std::uint64_t terminal_size = in.uleb128();
    if (name.empty() && terminal_size != 0) {
      address = terminal_address(image, in);
      break;
    }
    in.skip(terminal_size);
    bool found = false;
    std::uint64_t child = 0;
    for (unsigned children = in.read<std::uint8_t>(); children != 0 && !found && in.ok(); --children) {
      const std::string_view edge = in.c_string();
      child = in.uleb128();
      if (!in.ok() || !name.starts_with(edge)) continue;
      name.remove_prefix(edge.size());
      found = true;
    }
    walked += in.offset() - node;
    if (!found) break;
    node = child;
  }
  if (bytes_read != nullptr) *bytes_read += walked;
  return address;
}

}  // namespace vlm
