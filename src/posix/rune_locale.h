// Character classes: the one locale that there is, "C", in the layout that game code indexes by itself. The macros of
// <ctype.h> on macOS are compiled into the game: isspace(c) reads __runetype[c] of _DefaultRuneLocale.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vlm {

/// `_CTYPE_*`, <_ctype.h> of macOS. The low eight bits of an entry hold the value of a hexadecimal digit.
enum CharacterClass : std::uint32_t {
  CTYPE_A = 0x100,         // alpha
  CTYPE_C = 0x200,         // control
  CTYPE_D = 0x400,         // digit
  CTYPE_G = 0x800,         // graph
  CTYPE_L = 0x1000,        // lower
  CTYPE_P = 0x2000,        // punct
  CTYPE_S = 0x4000,        // space
  CTYPE_U = 0x8000,        // upper
  CTYPE_X = 0x10000,       // hexadecimal digit
  CTYPE_B = 0x20000,       // blank
  CTYPE_R = 0x40000,       // print
  CTYPE_SW1 = 0x40000000,  // one column wide
};

/// `_RuneRange` and `_RuneLocale`, <runetype.h> of macOS.
struct RuneRange {
  std::int32_t nranges;
  const void* ranges;
};
struct RuneLocale {
  std::array<char, 8> magic;  // without a terminator
  std::array<char, 32> encoding;
  const void* sgetrune;
  const void* sputrune;
  std::int32_t invalid_rune;
  std::array<std::uint32_t, 256> runetype;
  std::array<std::int32_t, 256> maplower;
  std::array<std::int32_t, 256> mapupper;
  RuneRange runetype_ext, maplower_ext, mapupper_ext;  // characters from 256 on: none
  const void* variable;
  std::int32_t variable_len;
  std::int32_t ncharclasses;
  const void* charclasses;
};
static_assert(offsetof(RuneLocale, encoding) == 8 && offsetof(RuneLocale, sgetrune) == 40 &&
              offsetof(RuneLocale, sputrune) == 48 && offsetof(RuneLocale, invalid_rune) == 56 &&
              offsetof(RuneLocale, runetype) == 60 && offsetof(RuneLocale, maplower) == 1084 &&
              offsetof(RuneLocale, mapupper) == 2108 && offsetof(RuneLocale, runetype_ext) == 3136 &&
              sizeof(RuneLocale) == 3208);

/// Laid out by the compiler: it is there before any code runs.
extern const RuneLocale default_rune_locale;

}  // namespace vlm
