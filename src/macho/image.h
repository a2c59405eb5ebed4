// The record of one loaded Mach-O image, and the list of them. Includes no Windows header: the readers of
// this record (commands, opcode streams, export trie, symbols) also build natively for tools and fuzzing.
//
//   the file                         the process
//   +----------------+               base                 base + extent         base + rounded extent
//   | header, cmds   |               | __TEXT | __DATA | ... |    (64 KiB)      | hook arena, 16 MiB |
//   | segments ------+-- read ---->  +--------+--------+-----+                  +--------------------+
//   | opcode streams |               vmaddr = address - slide
//   | trie, symbols  |
//   +----------------+  the tables are read in place: tools have the whole file in file_data, of a loaded image it is
//                       the part with the tables, in the memory of its __LINKEDIT or in a copy
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace vlm {

/// From `segment_command_64`, <mach-o/loader.h>. Addresses stay link-time addresses.
struct MachSegment {
  char name[17];  // the 16 bytes of segname and a NUL
  std::uint64_t vmaddr;
  std::uint64_t vmsize;
  std::uint64_t fileoff;
  std::uint64_t filesize;
  std::uint32_t maxprot;
  std::uint32_t initprot;

  /// False for __PAGEZERO and for a segment without size: these do not count in the extent, and are neither copied nor
  /// protected.
  bool mapped() const { return vmsize != 0 && std::strcmp(name, "__PAGEZERO") != 0; }
};

/// From `section_64`. `addr` is a link-time address until the image is placed, a run-time address from then on.
struct MachSection {
  char segname[17];
  char sectname[17];
  std::uint64_t addr;
  std::uint64_t size;
};

/// Where a section symbol is.
struct SymbolPlace {
  std::uint64_t vmaddr;
  std::uint32_t n_strx;  // its name, which ends inside the string table
  std::uint32_t symbol;  // index in the symbol table
};

/// An index of section symbols, in ascending order of vmaddr. Of several at one place only the first in the symbol
/// table is in it.
struct SymbolPlaces {
  std::size_t count;  // places follow
  SymbolPlace* begin() { return reinterpret_cast<SymbolPlace*>(this + 1); }
  std::span<const SymbolPlace> all() const { return {reinterpret_cast<const SymbolPlace*>(this + 1), count}; }
};

inline constexpr int max_segments = 16;
inline constexpr int max_sections = 128;
inline constexpr int max_dylibs = 64;
inline constexpr int max_images = 8;

/// One loaded image. Zero-filled when made; lives until the process ends; immutable once macho_load() has
/// returned it, except for the index.
struct MachImage {
  char path[1024];             // as given to macho_load(), with '/' separators
  const std::byte* file_data;  // the file from file_start on
  std::uint64_t file_start;    // 0 in tools
  std::uint64_t file_size;     // of the whole slice
  std::uint64_t base;
  std::int64_t slide;
  std::uint64_t vm_min;  // lowest vmaddr of a counted segment (not __PAGEZERO, vmsize not 0)
  std::uint64_t vm_end;  // highest vmaddr + vmsize of a counted segment
  MachSegment segments[max_segments];
  std::int32_t segment_count;
  MachSection sections[max_sections];
  std::int32_t section_count;
  const char* dylib_names[max_dylibs];  // into the load commands; library ordinal N is entry N - 1
  std::int32_t dylib_count;
  std::uint32_t rebase_off, rebase_size;
  std::uint32_t bind_off, bind_size;
  std::uint32_t weak_bind_off, weak_bind_size;
  std::uint32_t lazy_bind_off, lazy_bind_size;
  std::uint32_t export_off, export_size;
  std::uint32_t symoff, nsyms, stroff, strsize;
  /// Made at the first use of macho_index_symbols(), read and written atomically; null until then.
  mutable const SymbolPlaces* symbol_places;

  /// Bytes from the lowest to the highest mapped address; 1 when no segment is mapped (vm_min all ones, vm_end 0).
  std::uint64_t extent() const { return vm_end - vm_min; }
  /// True for a run-time address inside the mapped extent.
  bool contains(std::uint64_t address) const { return address >= base && address - base < extent(); }
  /// The same for `size` bytes from there on.
  bool contains(std::uint64_t address, std::uint64_t size) const {
    return contains(address) && size <= base + extent() - address;
  }
  /// The bytes of a stream or table of non-zero size; in range since the commands were read.
  std::span<const std::byte> file_range(std::uint32_t offset, std::uint64_t size) const {
    return {file_data + (offset - file_start), size};
  }
};

/// The loaded images in load order. Only macho_load() adds one, on the start-up thread; read without a lock.
std::span<MachImage* const> macho_images();

}  // namespace vlm
