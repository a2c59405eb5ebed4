// What the headers and load commands say, without believing them.
#include <algorithm>
#include <cstdio>

#include "inspect/gather.h"
#include "macho/command_walk.h"
#include "macho/commands.h"

namespace vlm::inspect {
namespace {

std::string fixed_name(const char (&name)[16]) { return {name, std::find(name, name + sizeof name, '\0')}; }

/// "10.13" or "10.13.6" from 16 bits, 8 bits and 8 bits.
std::string version_text(std::uint32_t version) {
  std::string text = std::to_string(version >> 16) + "." + std::to_string(version >> 8 & 0xFF);
  if ((version & 0xFF) != 0) text += "." + std::to_string(version & 0xFF);
  return text;
}

/// The text that a command holds at an offset from its own start; empty when it does not.
std::string text_at(const ByteReader& command, std::uint32_t offset) {
  ByteReader in = command;
  in.skip(offset);
  return std::string(in.c_string());
}

void read_segment(Format& format, ByteReader in) {
  const auto segment = in.read<SegmentCommand64>();
  if (!in.ok()) return;
  format.segments.push_back(
      {fixed_name(segment.segname), segment.vmaddr, segment.vmsize, segment.filesize, segment.initprot});
  for (std::uint32_t i = 0; i < segment.nsects; ++i) {
    const auto section = in.read<Section64>();
    if (!in.ok()) return;
    format.sections.push_back(
        {fixed_name(section.segname), fixed_name(section.sectname), section.addr, section.size, section.flags});
  }
}

std::string read_uuid(ByteReader in) {
  in.skip(sizeof(LoadCommand));
  std::string text;
  for (int i = 0; i < 16; ++i) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(in.read<std::uint8_t>()));
    text += digits;
    if (i == 3 || i == 5 || i == 7 || i == 9) text += '-';
  }
  return in.ok() ? text : std::string();
}

void read_command(Format& format, std::uint32_t cmd, ByteReader in) {
  ByteReader fields = in;
  fields.skip(sizeof(LoadCommand));
  switch (cmd) {
    case LC_SEGMENT_64: return read_segment(format, in);
    case LC_LOAD_DYLIB:
    case LC_LOAD_WEAK_DYLIB:
    case LC_REEXPORT_DYLIB:
    case LC_LOAD_UPWARD_DYLIB: format.libraries.push_back(text_at(in, fields.read<std::uint32_t>())); return;
    case LC_ID_DYLIB: format.install_name = text_at(in, fields.read<std::uint32_t>()); return;
    case LC_UUID: format.uuid = read_uuid(in); return;
    case LC_VERSION_MIN_MACOSX: format.minimum_os = version_text(fields.read<std::uint32_t>()); return;
    case LC_BUILD_VERSION:
      fields.skip(sizeof(std::uint32_t));  // the platform
      format.minimum_os = version_text(fields.read<std::uint32_t>());
      return;
    case LC_ROUTINES:
    case LC_ROUTINES_64: format.has_routines = true; return;
    case LC_DYLD_INFO:
    case LC_DYLD_INFO_ONLY: format.has_dyld_info = true; return;
    case LC_DYLD_CHAINED_FIXUPS: format.chained_fixups = true; return;
  }
}

/// The slices of a universal file; which one is taken is left to the loader's own choice.
std::vector<Slice> read_slices(std::span<const std::byte> file) {
  std::vector<Slice> slices;
  if (macho_slice_table_size(file) == 0) return slices;
  const auto big = [](std::uint32_t value) { return __builtin_bswap32(value); };
  ByteReader in(file);
  const auto header = in.read<FatHeader>();
  for (std::uint32_t i = 0; i < big(header.nfat_arch); ++i) {
    const auto arch = in.read<FatArch>();
    if (!in.ok()) break;
    slices.push_back({big(arch.cputype), big(arch.offset), big(arch.size), false});
  }
  return slices;
}

}  // namespace

Format gather_format(std::span<const std::byte> file) {
  Format format;
  format.file_size = file.size();
  format.slices = read_slices(file);
  const auto taken = macho_choose_slice("", file, file.size());
  if (!taken) return format;
  for (Slice& slice : format.slices) slice.taken = slice.offset == taken->offset && slice.cputype == CPU_TYPE_X86_64;

  const auto slice = file.subspan(taken->offset, taken->size);
  ByteReader in(slice);
  const auto header = in.read<MachHeader64>();
  format.is_macho = in.ok() && header.magic == MH_MAGIC_64;
  if (!format.is_macho) return format;
  format.cputype = header.cputype;
  format.filetype = header.filetype;
  macho_walk_commands(slice, [&](std::uint32_t cmd, const ByteReader& command) { read_command(format, cmd, command); });

  std::uint64_t begin = ~std::uint64_t{0}, end = 0;
  for (const Segment& segment : format.segments) {
    if (segment.vmsize == 0 || segment.name == "__PAGEZERO") continue;
    begin = std::min(begin, segment.vmaddr);
    end = std::max(end, segment.vmaddr + segment.vmsize);
  }
  format.extent = end > begin ? end - begin : 0;
  return format;
}

std::uint64_t thread_local_variables(const Format& format) {
  constexpr std::uint64_t descriptor_size = 24;
  std::uint64_t count = 0;
  for (const Section& section : format.sections) {
    if ((section.flags & SECTION_TYPE) == S_THREAD_LOCAL_VARIABLES) count += section.size / descriptor_size;
  }
  return count;
}

}  // namespace vlm::inspect
