// Walks an image's load commands one by one, for what the loader itself does not read.
#pragma once

#include <cstddef>
#include <span>

#include "macho/format.h"
#include "support/byte_reader.h"

namespace vlm {

/// Calls `visit(cmd, reader)` for each load command of a 64-bit image; the reader stands at the command's start and
/// ends where the command ends. Stops at the first command that is not whole, so any bytes can be given.
template <class Visit>
void macho_walk_commands(std::span<const std::byte> file, Visit visit) {
  const auto header = ByteReader(file).read<MachHeader64>();
  if (header.magic != MH_MAGIC_64) return;
  std::uint64_t offset = sizeof(MachHeader64);
  for (std::uint32_t i = 0; i < header.ncmds; ++i) {
    const auto command = ByteReader(file, offset).read<LoadCommand>();
    if (command.cmdsize < sizeof(LoadCommand) || !range_fits(offset, command.cmdsize, file.size())) return;
    visit(command.cmd, ByteReader(file.first(offset + command.cmdsize), offset));
    offset += command.cmdsize;
  }
}

}  // namespace vlm
