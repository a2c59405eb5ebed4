// Where an image's instructions are: its code sections, cut at the starts of functions, and the data inside.
//
//   __text  | f | g  (jump table of g)  rest of g | h |    LC_FUNCTION_STARTS and symbols say where f, g and h begin,
//           '---'---------------------------------'---'    LC_DATA_IN_CODE what is no code, as far as the linker tells
//
// x86 instructions have no fixed length, so decoding has to begin at an instruction: a decoder that meets data goes
// wrong at most until the next function. Places are distances from vm_min, which have 32 bits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "macho/image.h"
#include "support/result.h"

namespace vlm::tessera {

/// From `begin` up to, not including, `end`: distances from vm_min.
struct CodeRange {
  std::uint32_t begin;
  std::uint32_t end;

  std::uint32_t size() const { return end - begin; }
  bool contains(std::uint64_t place) const { return place >= begin && place < end; }
};

struct CodeSection {
  CodeRange extent;
  std::span<const std::byte> bytes;  // in the image's file_data
};

class CodeMap {
 public:
  /// The code of an image whose commands have been read. Fails when a code section's bytes are not in the file, or a
  /// table of function starts or of data in code lies outside of it.
  static Result<CodeMap> of(const MachImage& image);

  /// Ascending, apart from each other.
  std::span<const CodeSection> sections() const { return sections_; }
  /// Functions, each to be decoded from its beginning on: ascending, apart from each other, none empty.
  std::span<const CodeRange> ranges() const { return ranges_; }

  /// What holds a place; null when nothing does.
  const CodeSection* section_of(std::uint64_t place) const;
  const CodeRange* range_of(std::uint64_t place) const;
  const CodeRange* data_of(std::uint64_t place) const;
  /// What of the data lies in a range, cut to it.
  std::vector<CodeRange> data_in(CodeRange range) const;

  /// Bytes that lie in one section.
  std::span<const std::byte> bytes(CodeRange range) const;

 private:
  std::vector<CodeSection> sections_;
  std::vector<CodeRange> ranges_;
  std::vector<CodeRange> data_;  // what LC_DATA_IN_CODE names, ascending
};

}  // namespace vlm::tessera
