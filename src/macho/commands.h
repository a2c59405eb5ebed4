// Reading the headers of an image file: which slice of the file is loaded, and what its load commands say.
//
// Files are hostile. Every offset, size and count is compared with the file and with the record's capacities here, so
// whoever reads a MachImage afterwards (placement, opcode streams, export trie, symbols) relies on:
//   - each segment's file range lies in the file, and filesize <= vmsize;
//   - each section of non-zero size lies in a mapped segment, so in the image's extent;
//   - the extent is at most 4 GiB;
//   - the non-empty opcode streams, the export trie, the symbol and string tables lie in the file;
//   - library names are NUL-terminated inside their commands.
#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <span>
#include <string>

#include "macho/image.h"

namespace vlm {

/// Why a file is not taken as an image. The text is a whole message.
struct ImageFault {
  std::string text;
  bool damaged;  // false: a sound file of a kind that is not loaded here
};

struct FileRange {
  std::uint64_t offset;
  std::uint64_t size;
};

/// How many bytes of the start of the file macho_choose_slice() needs: the whole table of a universal file, 0 for any
/// other file. Decided by the first eight bytes, or fewer when the file has no more.
std::uint64_t macho_slice_table_size(std::span<const std::byte> first_bytes);

/// The part of a file that is loaded: the last x86_64 slice of a universal file, or the whole file.
///   path  for messages
///   head  the first min(file_size, max(8, macho_slice_table_size())) bytes of the file
std::expected<FileRange, ImageFault> macho_choose_slice(const char* path, std::span<const std::byte> head,
                                                        std::uint64_t file_size);

/// How many of an image's leading bytes its header and load commands take, told from `start`, the first of them: more
/// than `start` has when they go on behind it.
std::uint64_t macho_commands_size(std::span<const std::byte> start);

/// Fills an image's record from its load commands. `path` and `file_size` are set by the caller, the rest is zero.
/// Section addresses are link-time addresses afterwards.
///   start  the file, or the first min(file_size, macho_commands_size()) bytes of it; must outlive the record
std::expected<void, ImageFault> macho_read_commands(MachImage& image, std::span<const std::byte> start);

/// The same for an image whose whole file is in file_data.
inline std::expected<void, ImageFault> macho_read_commands(MachImage& image) {
  return macho_read_commands(image, {image.file_data, image.file_size});
}

/// The part of the file from the first to the end of the last of an image's tables: opcode streams, export trie,
/// symbols and strings. Empty when there are none.
FileRange macho_tables_range(const MachImage& image);

/// The segment in whose memory the tables stay as the file has them: it holds all of them, is neither written nor
/// executed, and shares its place with no other. Null when there is none, or no table.
const MachSegment* macho_segment_of_tables(const MachImage& image);

/// The message for a file whose bytes make no sense, or exceed what is supported.
std::string macho_damaged_text(const char* path, const std::string& fault);

}  // namespace vlm
