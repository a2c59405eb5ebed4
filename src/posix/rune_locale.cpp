#include "posix/rune_locale.h"

#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {
namespace {

constexpr std::uint32_t classes_of(char c) {
  const bool is_digit = c >= '0' && c <= '9';
  const bool is_upper = c >= 'A' && c <= 'Z';
  const bool is_lower = c >= 'a' && c <= 'z';
  const char lower = is_upper ? c + 32 : c;
  std::uint32_t classes = 0;
  if (c < ' ' || c == 0x7F) classes |= CTYPE_C;
  if (c == ' ' || c == '\t') classes |= CTYPE_B;
  if (c == ' ' || (c >= '\t' && c <= '\r')) classes |= CTYPE_S;
  if (c >= ' ' && c < 0x7F) classes |= CTYPE_R | CTYPE_SW1;
  if (c > ' ' && c < 0x7F) classes |= CTYPE_G;
  if (is_digit) classes |= CTYPE_D | CTYPE_X | static_cast<std::uint32_t>(c - '0');
  if (is_upper) classes |= CTYPE_U | CTYPE_A;
  if (is_lower) classes |= CTYPE_L | CTYPE_A;
  if (lower >= 'a' && lower <= 'f') classes |= CTYPE_X | static_cast<std::uint32_t>(lower - 'a' + 10);
  if ((classes & (CTYPE_G | CTYPE_D | CTYPE_A)) == CTYPE_G) classes |= CTYPE_P;
  return classes;
}

/// Characters from 128 on belong to no class and map to themselves.
constexpr RuneLocale make_c_locale() {
  RuneLocale locale = {};
  locale.magic = {'R', 'u', 'n', 'e', 'M', 'a', 'g', 'A'};
  locale.encoding = {'N', 'O', 'N', 'E'};
  locale.invalid_rune = 0xFFFD;
  for (unsigned c = 0; c < 256; ++c) {
    if (c < 128) locale.runetype[c] = classes_of(static_cast<char>(c));
    locale.maplower[c] = static_cast<int>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    locale.mapupper[c] = static_cast<int>(c >= 'a' && c <= 'z' ? c - 32 : c);
  }
  return locale;
}

SYSV std::uint32_t maskrune_(std::int32_t c, std::uint64_t mask) {
  const auto index = static_cast<std::uint32_t>(c);
  return index < 256 ? default_rune_locale.runetype[index] & static_cast<std::uint32_t>(mask) : 0;
}
SYSV std::int32_t tolower_(std::int32_t c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; }

// There is no state of a locale: every one asked for is "C".
SYSV const char* setlocale_(std::int32_t category, const char* name) { return "C"; }
const char some_locale = 0;
SYSV const void* newlocale_(std::int32_t categories, const char* name, const void* base) { return &some_locale; }
SYSV std::int32_t freelocale_(const void* locale) { return 0; }

}  // namespace

constexpr RuneLocale default_rune_locale = make_c_locale();

const ShimEntry rune_locale_rows[] = {
    {"___maskrune", shim(maskrune_)},   {"___tolower", shim(tolower_)},
    {"_setlocale", shim(setlocale_)},   {"_newlocale", shim(newlocale_)},
    {"_freelocale", shim(freelocale_)}, {"__DefaultRuneLocale", shim(&default_rune_locale)},
};
constinit const ShimRows rune_locale_shims = rune_locale_rows;

}  // namespace vlm
