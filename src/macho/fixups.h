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
#include <functional>
#include <span>

#include "macho/image.h"
#include "macho/imports.h"
#include "support/result.h"

namespace vlm {

/// Pointers that one opcode patches; all inside the image.
struct PointerRun {
  std::uint64_t offset;  // of the first, in bytes from the image's lowest address
  std::uint64_t count;   // not 0
  std::uint64_t stride;  // bytes from one to the next, modulo 2^64
};

enum class BindStream { binds, weak_binds, lazy_binds };

/// Calls `visit` for each run of the rebase stream, in its order.
///   returns  how many pointers the runs have
///   errors   a whole message; earlier runs were visited
Result<std::uint64_t> macho_walk_rebases(const MachImage& image, const std::function<void(const PointerRun&)>& visit);

/// Calls `visit` for each run of a bind stream, in its order, with the symbol that is bound; stops when `visit` fails.
/// DONE ends one entry of the lazy stream, and the whole of any other stream. Otherwise as macho_walk_rebases().
Result<std::uint64_t> macho_walk_binds(const MachImage& image, BindStream stream,
                                       const std::function<Result<void>(const PointerRun&, const Import&)>& visit);

/// Adds the slide to every pointer of the rebase stream.
///   memory   the image's extent, the byte at `base` first
///   returns  how many pointers were changed
///   errors   a whole message; nothing outside `memory` was touched, earlier runs stay applied
Result<std::uint64_t> macho_rebase(const MachImage& image, std::span<std::byte> memory);

/// Stores the address of an imported symbol plus addend in every pointer of a bind stream, each symbol resolved at
/// once. Otherwise as macho_rebase().
Result<std::uint64_t> macho_bind(const MachImage& image, std::span<std::byte> memory, BindStream stream,
                                 const SymbolSources& sources);

}  // namespace vlm
