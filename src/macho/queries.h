// Read-only questions about a loaded image. They read immutable data, keep no state and take no lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "macho/image.h"

namespace vlm {

/// Run-time address of an exported symbol (name with its leading underscore), or 0.
/// Re-exports are not followed; absolute symbols come back as they stand.
/// Adds the bytes it walked to `bytes_read` when that is not null, so that a caller can bound many look-ups.
std::uint64_t macho_find_export(const MachImage& image, std::string_view name, std::uint64_t* bytes_read = nullptr);

/// The first section with exactly these names, or null.
const MachSection* macho_find_section(const MachImage& image, std::string_view segment, std::string_view section);

/// What the image's file has from an address on, to the end of its segment. Empty when nothing of the file lies there.
///   vmaddr  a link-time address
std::span<const std::byte> macho_bytes_at(const MachImage& image, std::uint64_t vmaddr);

/// True for a run-time address in a segment that is executable.
bool macho_is_code(const MachImage& image, std::uint64_t address);

/// Fills `places` with the image's section symbols as an index holds them, and returns how many there are. When there
/// is no room for all, nothing is filled, and the number returned may be too large.
std::size_t macho_section_symbols(const MachImage& image, std::span<SymbolPlace> places);

/// Name of the nearest defined section symbol at or below a run-time address, with its leading underscore, or null.
/// Stores the distance from the symbol when `offset` is not null.
const char* macho_symbol_for_address(const MachImage& image, std::uint64_t address, std::uint64_t* offset);

/// Run-time address of the first defined section symbol named `name` or "_" + `name`, local symbols included, or 0.
std::uint64_t macho_symbol_by_name(const MachImage& image, std::string_view name);

}  // namespace vlm
