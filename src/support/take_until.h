// Cutting a text at its separators, from front to back.
#pragma once

#include <string_view>

namespace vlm {

/// The first part of a text, up to a separator or the end. It is taken off the text, and the separator with it.
inline std::string_view take_until(std::string_view& text, char separator) {
  const std::size_t end = text.find(separator);
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(end == text.npos ? text.size() : end + 1);
  return part;
}

}  // namespace vlm
