// Where an image's instructions are: its code sections, cut at the starts of functions, without the data inside.
//
//   __text  | f | g | jump table of g | h |        LC_FUNCTION_STARTS and symbols say where f, g and h begin,
//           '---'---'                 '---'        LC_DATA_IN_CODE what is no code
//
// x86 instructions have no fixed length, so decoding has to begin at an instruction: a decoder that meets data goes
// wrong at most until the next function.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "macho/image.h"
#include "support/result.h"

namespace vlm::tessera {

/// Bytes to decode from the first on; never empty.
struct CodeRange {
  std::uint64_t vmaddr;
  std::span<const std::byte> bytes;  // in the image's file_data
  std::uint64_t function_begin;      // the function that it is a part of
  std::uint64_t function_end;
};

/// The code of an image whose commands have been read, in ascending order of addresses. Fails when a code section's
/// bytes are not in the file, or a table of function starts or of data in code lies outside of it.
Result<std::vector<CodeRange>> code_ranges(const MachImage& image);

}  // namespace vlm::tessera
