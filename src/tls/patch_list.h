// The thread-storage patch list: which instructions of an image read gs, and the code that replaces each.
//
// macOS code reaches its thread storage through gs, which on Windows points at the thread environment block. The
// build tool finds every such instruction and appends a list to the library's own file; start-up lays a jump over
// each site, to a trampoline that performs the access relative to the thread's game storage. All little-endian:
//
//   end of the library's file
//   | blob: magic "VLMGSP1\0" | u64 count | entry, entry, ...        | trailer: u64 blob size | "VLMGSPEM" |
//
//   entry:  u32 site | u8 L | L bytes expected | u16 T | u16 S | T bytes trampoline
//           site  offset of the instruction from the image's base
//           L     bytes replaced there, at least 5
//           S     position in the trampoline of 8 bytes for the address of game_storage_offset
//           T     bytes of trampoline; the last 8 take the address behind the site
//
// Nothing here includes a Windows header: the build tool writes lists and the fuzzer reads them with this code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "support/result.h"

namespace vlm {

inline constexpr char gs_patch_magic[8] = {'V', 'L', 'M', 'G', 'S', 'P', '1', '\0'};
inline constexpr char gs_patch_end_magic[8] = {'V', 'L', 'M', 'G', 'S', 'P', 'E', 'M'};
inline constexpr std::size_t gs_patch_trailer_size = 16;
inline constexpr std::uint64_t max_gs_patch_blob = 0x3FFFFFF;
inline constexpr std::size_t min_site_length = 5;         // a jump with a 32-bit displacement
inline constexpr std::size_t min_trampoline_length = 14;  // jmp [rip+0] and its address
inline constexpr std::size_t expansion_growth = 12;       // bytes by which a trampoline grows in expansion mode

/// One site and its trampoline template. The spans point into the list.
struct PatchEntry {
  std::uint32_t site;
  std::span<const std::byte> expected;
  std::uint16_t slot;
  std::span<const std::byte> trampoline;
};

/// Walks the entries of a blob in place; a list of many thousand sites is read twice without being copied.
class PatchListReader {
 public:
  /// `blob` holds the 16-byte header at least.
  explicit PatchListReader(std::span<const std::byte> blob);

  std::uint32_t count() const { return count_; }
  /// The next entry, or nullopt when it does not lie inside the blob.
  std::optional<PatchEntry> next();

 private:
  std::span<const std::byte> blob_;
  std::size_t offset_;
  std::uint32_t count_;
};

/// True when the template loads the block with "mov R, gs:[R]", R a plain base register, right behind its address:
/// expansion mode needs it so.
bool has_gs_load(const PatchEntry& entry);

/// Size of the blob that a trailer announces, or nullopt when the 16 bytes are no trailer.
std::optional<std::uint64_t> gs_patch_blob_size(std::span<const std::byte, gs_patch_trailer_size> trailer);

/// A whole list: blob and trailer, as they are appended to the library's file.
std::vector<std::byte> write_patch_list(std::span<const PatchEntry> entries);

/// Checks a blob's header and that every entry lies inside it; fails with "%s is not a gs patch file" or
/// "%s is truncated" about `name`.
/// Returns the bytes that all trampolines take, at least 16. The work is bounded by the blob's size, not its count.
Result<std::uint64_t> measure_patch_list(std::span<const std::byte> blob, bool expansion, const char* name);

/// What a list is applied to. The spans are memory that the patched code will run in, at the addresses it runs at.
struct PatchTarget {
  std::span<std::byte> image;                // base .. base + extent, writable
  std::span<std::byte> trampolines;          // as many bytes as measure_patch_list() said
  const std::uint64_t* game_storage_offset;  // its address goes into every trampoline
  bool expansion;                            // the slot is in the TLS expansion array
};

/// Applies a blob that measure_patch_list() accepted, entry by entry in the order of the list; each entry is checked
/// whole before anything of it is written. Returns the number of patched sites, or what was wrong with the first bad
/// entry: the process must not run the image then, earlier sites are patched already.
Result<std::uint32_t> apply_patch_list(std::span<const std::byte> blob, const PatchTarget& target, const char* name);

}  // namespace vlm
