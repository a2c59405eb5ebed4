#include "macho/commands.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "macho/format.h"
#include "support/byte_reader.h"
#include "support/result.h"

namespace vlm {
namespace {

/// Displacements into the image (patch sites, hooks) have 32 bits.
constexpr std::uint64_t max_extent = std::uint64_t{1} << 32;
/// Install names are paths; the longest path of a Mac has so many characters.
constexpr std::size_t max_install_name = 1023;

using Bytes = std::span<const std::byte>;
using Wide = unsigned long long;  // what %llu prints, on every system

std::uint32_t read_big_endian(ByteReader& in) { return std::byteswap(in.read<std::uint32_t>()); }

std::unexpected<ImageFault> damaged(const char* path, const std::unexpected<Fault>& fault) {
  return std::unexpected(ImageFault{macho_damaged_text(path, fault.error().text), true});
}

void copy_name(char (&to)[17], const char (&from)[16]) {
  std::memcpy(to, from, sizeof from);
  to[16] = '\0';
}

/// The fixed part at the start of a command's bytes.
template <class Command>
Result<Command> read_command(Bytes bytes) {
  ByteReader in(bytes);
  const auto command = in.read<Command>();
  if (!in.ok()) return fault("cmdsize is %zu, at least %zu expected", bytes.size(), sizeof(Command));
  return command;
}

Result<void> read_section(MachImage& image, const MachSegment& segment, const Section64& from) {
  if (image.section_count == max_sections) return fault("more than %d sections", max_sections);
  MachSection& section = image.sections[image.section_count++];
  copy_name(section.segname, from.segname);
  copy_name(section.sectname, from.sectname);
  section.addr = from.addr;
  section.size = from.size;
  if (section.size == 0) return {};
  if (!segment.mapped() || !range_fits(section.addr - segment.vmaddr, section.size, segment.vmsize)) {
    return fault("section %s,%s (0x%llx bytes at 0x%llx) is not inside mapped segment %s (0x%llx bytes at 0x%llx)",
                 section.segname, section.sectname, Wide{section.size}, Wide{section.addr}, segment.name,
                 Wide{segment.vmsize}, Wide{segment.vmaddr});
  }
  return {};
}

Result<void> read_segment(MachImage& image, Bytes bytes) {
  const auto command = read_command<SegmentCommand64>(bytes);
  if (!command) return std::unexpected(command.error());
  if (image.segment_count == max_segments) return fault("more than %d segments", max_segments);
  MachSegment& segment = image.segments[image.segment_count++];
  copy_name(segment.name, command->segname);
  segment.vmaddr = command->vmaddr;
  segment.vmsize = command->vmsize;
  segment.fileoff = command->fileoff;
  segment.filesize = command->filesize;
  segment.maxprot = command->maxprot;
  segment.initprot = command->initprot;

  if (segment.filesize > segment.vmsize) {
    return fault("segment %s has filesize 0x%llx, more than its vmsize 0x%llx", segment.name, Wide{segment.filesize},
                 Wide{segment.vmsize});
  }
  if (segment.filesize != 0 && !range_fits(segment.fileoff, segment.filesize, image.file_size)) {
    return fault("segment %s takes 0x%llx bytes at 0x%llx of a file of 0x%llx", segment.name, Wide{segment.filesize},
                 Wide{segment.fileoff}, Wide{image.file_size});
  }
  if (segment.vmaddr + segment.vmsize < segment.vmaddr) {
    return fault("segment %s (0x%llx bytes at 0x%llx) wraps around the address space", segment.name,
                 Wide{segment.vmsize}, Wide{segment.vmaddr});
  }
  if (segment.mapped()) {
    image.vm_min = std::min(image.vm_min, segment.vmaddr);
    image.vm_end = std::max(image.vm_end, segment.vmaddr + segment.vmsize);
  }

  ByteReader in(bytes, sizeof(SegmentCommand64));
  for (std::uint32_t i = 0; i < command->nsects; ++i) {
    const auto section = in.read<Section64>();
    if (!in.ok()) {
      return fault("segment %s has %u sections, its cmdsize %zu has room for %u", segment.name, command->nsects,
                   bytes.size(), i);
    }
    if (auto done = read_section(image, segment, section); !done) return done;
  }
  return {};
}

/// Empty ranges may name any offset: nothing is read there.
Result<void> check_table(const MachImage& image, const char* what, std::uint64_t offset, std::uint64_t size) {
  if (size == 0 || range_fits(offset, size, image.file_size)) return {};
  return fault("the %s takes 0x%llx bytes at 0x%llx of a file of 0x%llx", what, Wide{size}, Wide{offset},
               Wide{image.file_size});
}

Result<void> read_symtab(MachImage& image, Bytes bytes) {
  const auto command = read_command<SymtabCommand>(bytes);
  if (!command) return std::unexpected(command.error());
  image.symoff = command->symoff;
  image.nsyms = command->nsyms;
  image.stroff = command->stroff;
  image.strsize = command->strsize;
  if (auto fits = check_table(image, "symbol table", image.symoff, image.nsyms * sizeof(Nlist64)); !fits) return fits;
  return check_table(image, "string table", image.stroff, image.strsize);
}

Result<void> read_dyld_info(MachImage& image, Bytes bytes) {
  const auto command = read_command<DyldInfoCommand>(bytes);
  if (!command) return std::unexpected(command.error());
  struct Stream {
    const char* name;
    std::uint32_t offset, size;
    std::uint32_t *image_offset, *image_size;
  };
  const Stream streams[] = {
      {"rebase stream", command->rebase_off, command->rebase_size, &image.rebase_off, &image.rebase_size},
      {"bind stream", command->bind_off, command->bind_size, &image.bind_off, &image.bind_size},
      {"weak-bind stream", command->weak_bind_off, command->weak_bind_size, &image.weak_bind_off,
       &image.weak_bind_size},
      {"lazy-bind stream", command->lazy_bind_off, command->lazy_bind_size, &image.lazy_bind_off,
       &image.lazy_bind_size},
      {"export trie", command->export_off, command->export_size, &image.export_off, &image.export_size},
  };
  for (const Stream& stream : streams) {
    *stream.image_offset = stream.offset;
    *stream.image_size = stream.size;
    if (auto fits = check_table(image, stream.name, stream.offset, stream.size); !fits) return fits;
  }
  return {};
}

Result<void> read_dylib(MachImage& image, Bytes bytes) {
  const auto command = read_command<DylibCommand>(bytes);
  if (!command) return std::unexpected(command.error());
  if (image.dylib_count == max_dylibs) return fault("more than %d dependent libraries", max_dylibs);
  ByteReader in(bytes, command->name);
  const std::string_view name = in.c_string();
  if (!in.ok()) return fault("no install name ends inside the command (name offset %u)", command->name);
  if (name.size() > max_install_name) return fault("an install name of %zu characters", name.size());
  image.dylib_names[image.dylib_count++] = name.data();
  return {};
}

Result<void> read_one(MachImage& image, std::uint32_t cmd, Bytes bytes) {
  switch (cmd) {
    case LC_SEGMENT_64: return read_segment(image, bytes);
    case LC_SYMTAB: return read_symtab(image, bytes);
    case LC_DYLD_INFO:
    case LC_DYLD_INFO_ONLY: return read_dyld_info(image, bytes);
    case LC_LOAD_DYLIB:
    case LC_LOAD_WEAK_DYLIB:
    case LC_REEXPORT_DYLIB:
    case LC_LOAD_UPWARD_DYLIB: return read_dylib(image, bytes);
  }
  return {};  // nothing the loader acts on
}

}  // namespace

std::string macho_damaged_text(const char* path, const std::string& fault) {
  return std::string(path) + " is damaged or not supported: " + fault;
}

std::uint64_t macho_slice_table_size(std::span<const std::byte> first_bytes) {
  ByteReader in(first_bytes);
  if (read_big_endian(in) != FAT_MAGIC) return 0;
  return sizeof(FatHeader) + std::uint64_t{read_big_endian(in)} * sizeof(FatArch);
}

std::expected<FileRange, ImageFault> macho_choose_slice(const char* path, std::span<const std::byte> head,
                                                        std::uint64_t file_size) {
  ByteReader in(head);
  if (read_big_endian(in) != FAT_MAGIC) return FileRange{0, file_size};
  const std::uint32_t nfat_arch = read_big_endian(in);
  FileRange slice{};
  bool found = false;
  for (std::uint32_t i = 0; i < nfat_arch && in.ok(); ++i) {
    FatArch arch;
    arch.cputype = read_big_endian(in);
    arch.cpusubtype = read_big_endian(in);
    arch.offset = read_big_endian(in);
    arch.size = read_big_endian(in);
    arch.align = read_big_endian(in);
    if (arch.cputype != CPU_TYPE_X86_64) continue;
    slice = {arch.offset, arch.size};
    found = true;
  }
  if (!in.ok()) {
    return damaged(
        path, fault("a universal header of %u slices does not fit a file of %llu bytes", nfat_arch, Wide{file_size}));
  }
  if (!found) return std::unexpected(ImageFault{"[macho] " + std::string(path) + " has no x86_64 slice", false});
  if (!range_fits(slice.offset, slice.size, file_size)) {
    return damaged(path, fault("the x86_64 slice takes %llu bytes at %llu of a file of %llu", Wide{slice.size},
                               Wide{slice.offset}, Wide{file_size}));
  }
  return slice;
}

std::uint64_t macho_commands_size(Bytes start) {
  const auto header = ByteReader(start).read<MachHeader64>();
  std::uint64_t offset = sizeof(MachHeader64);
  if (header.magic != MH_MAGIC_64) return offset;
  for (std::uint32_t i = 0; i < header.ncmds; ++i) {
    const auto command = ByteReader(start, offset).read<LoadCommand>();
    if (command.cmdsize < sizeof(LoadCommand)) return offset + sizeof(LoadCommand);  // cut, or damaged
    offset += command.cmdsize;
  }
  return offset;
}

std::expected<void, ImageFault> macho_read_commands(MachImage& image, Bytes start) {
  if (ByteReader in(start); in.read<std::uint32_t>() != MH_MAGIC_64) {
    return std::unexpected(ImageFault{"not a 64-bit Mach-O", false});
  }
  const auto header = read_command<MachHeader64>(start);
  if (!header) return damaged(image.path, fault("a Mach-O of %zu bytes is shorter than its header", start.size()));

  image.vm_min = ~std::uint64_t{0};
  image.vm_end = 0;
  std::uint64_t offset = sizeof(MachHeader64);
  for (std::uint32_t i = 0; i < header->ncmds; ++i) {
    ByteReader in(start, offset);
    const auto command = in.read<LoadCommand>();
    if (!in.ok() || command.cmdsize < sizeof(LoadCommand) || !range_fits(offset, command.cmdsize, start.size())) {
      return damaged(image.path, fault("load command %u of %u at offset %llu has cmdsize %u, %llu bytes are left", i,
                                       header->ncmds, Wide{offset}, command.cmdsize, Wide{image.file_size - offset}));
    }
    if (command.cmd == LC_DYLD_CHAINED_FIXUPS) {
      return std::unexpected(
          ImageFault{"chained fixups are not supported (use the x86_64 slice of an older-format binary)", false});
    }
    if (auto done = read_one(image, command.cmd, start.subspan(offset, command.cmdsize)); !done) {
      return damaged(image.path, fault("load command %u (0x%x) at offset %llu: %s", i, command.cmd, Wide{offset},
                                       done.error().text.c_str()));
    }
    offset += command.cmdsize;
  }
  if (image.extent() > max_extent) {
    return damaged(image.path, fault("its segments reach from 0x%llx to 0x%llx, more than 4 GiB", Wide{image.vm_min},
                                     Wide{image.vm_end}));
  }
  return {};
}

FileRange macho_tables_range(const MachImage& image) {
  std::uint64_t begin = image.file_size, end = 0;
  const FileRange tables[] = {
      {image.rebase_off, image.rebase_size},
      {image.bind_off, image.bind_size},
      {image.weak_bind_off, image.weak_bind_size},
      {image.lazy_bind_off, image.lazy_bind_size},
      {image.export_off, image.export_size},
      {image.symoff, image.nsyms * sizeof(Nlist64)},
      {image.stroff, image.strsize},
  };
  for (const auto& [offset, size] : tables) {
    if (size == 0) continue;
    begin = std::min(begin, offset);
    end = std::max(end, offset + size);
  }
  return end == 0 ? FileRange{} : FileRange{begin, end - begin};
}

const MachSegment* macho_segment_of_tables(const MachImage& image) {
  const FileRange tables = macho_tables_range(image);
  const std::span segments(image.segments, static_cast<std::size_t>(image.segment_count));
  if (tables.size == 0) return nullptr;
  for (const MachSegment& segment : segments) {
    if (!segment.mapped() || (segment.initprot & (VM_PROT_WRITE | VM_PROT_EXECUTE)) != 0) continue;
    if (tables.offset < segment.fileoff) continue;
    if (!range_fits(tables.offset - segment.fileoff, tables.size, segment.filesize)) continue;
    const auto shares_its_place = [&](const MachSegment& other) {
      return &other != &segment && other.mapped() && other.vmaddr < segment.vmaddr + segment.vmsize &&
             segment.vmaddr < other.vmaddr + other.vmsize;
    };
    if (std::ranges::none_of(segments, shares_its_place)) return &segment;
  }
  return nullptr;
}

}  // namespace vlm
