// Making a placed image's pointers valid: the rebase and bind opcode streams of LC_DYLD_INFO, <mach-o/loader.h>.
//
// A stream is a small program. It moves a place (segment, offset) and patches runs of pointers there, so a few bytes
// can ask for 2^60 of them, anywhere. Each run is therefore checked as a whole before its first pointer is touched,
// and a stream may patch no more pointers than the image has room for: work is bounded by the size of the file and of
// the image, whatever the bytes say.
//
// The memory that is patched is passed in: the placed image itself, or a copy of it in a test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "macho/image.h"
#include "support/result.h"

namespace vlm {

/// Where imports are looked up, besides the image's own exports; in this order.
struct SymbolSources {
  std::span<MachImage* const> images;                                       // those that other images may import from
  const void* (*lookup_shim)(const char* library, const char* name);           // null: no such shim
  const void* (*make_missing_symbol)(const char* library, const char* name);  // never null
};

/// Adds the slide to every pointer of the rebase stream.
///   memory   the image's extent, the byte at `base` first
///   returns  how many pointers were changed
///   errors   a whole message; nothing outside `memory` was touched, earlier runs stay applied
Result<std::uint64_t> macho_rebase(const MachImage& image, std::span<std::byte> memory);

/// Stores the address of an imported symbol plus addend in every pointer of a bind stream, each symbol resolved at
/// once. `lazy` says that DONE ends an entry, not the stream. Otherwise as macho_rebase().
Result<std::uint64_t> macho_bind(const MachImage& image, std::span<std::byte> memory, std::uint32_t stream_offset,
                                 std::uint32_t stream_size, bool lazy, const SymbolSources& sources);

}  // namespace vlm
