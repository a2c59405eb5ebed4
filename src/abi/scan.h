// The sscanf engine: macOS formats, places to store to from a System V argument list.
//
// The host's scanf does not serve (its `long` has 32 bits, its `wchar_t` 16, %lln stores 32, %hh is unknown to it), so
// the input is matched here. Where macOS is kinder than C, so is this: a conversion takes the longest text that it can
// convert and leaves an unfinished tail ("100ergs" is 100 for %f, "0xg" is 0 for %x), and %5c takes three characters
// when there are no more.
#pragma once

#include <cstdint>

#include "abi/va_list.h"

namespace vlm {

/// Matches `input` against `format`; neither is read beyond its NUL. Every conversion with its length stores as C says;
/// the list is advanced past the places that were stored to. Beyond what C defines:
///   %d and its like  read 64 bits, clamped, and store the low bytes
///   %f               of a value too large stores infinity, of one too small 0 or the nearest
///   %ls %lc %l[ %S %C  store 32-bit characters; the input is UTF-8, ill-formed text is an input failure
///   %Lf              reads 80-bit extended values
/// Returns the number of values stored (%n not counted), or -1 when the input ended before the first conversion did.
std::int32_t scan_text(const char* input, const char* format, SysvVaList& arguments);

}  // namespace vlm
