#include "shared/text.h"

#include <cstdio>

namespace vlm::tools {

std::size_t utf8_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (text.empty()) return 0;
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  // Too long for what they say, surrogates, beyond U+10FFFF.
  if ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F)) return 0;
  if ((first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F)) return 0;
  return length;
}

std::string printable(std::string_view name) {
  std::string text;
  while (!name.empty()) {
    std::size_t length = utf8_length(name);
    const auto first = static_cast<unsigned char>(name.front());
    const bool control = first < 0x20 || first == 0x7F || (first == 0xC2 && length == 2 && (name[1] & 0xFF) < 0xA0);
    if (length == 0 || control) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", unsigned{first});
      text += escaped;
      length = 1;
    } else {
      text += name.substr(0, length);
    }
    name.remove_prefix(length);
  }
  return text;
}

}  // namespace vlm::tools
