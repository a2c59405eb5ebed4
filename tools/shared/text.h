// Names as people may read them: a file's names can hold any bytes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vlm::tools {

/// Bytes of the well-formed UTF-8 sequence that `text` begins with, or 0.
std::size_t utf8_length(std::string_view text);

/// For a terminal: bytes that are no text, control characters among them, as "\x1b".
std::string printable(std::string_view name);

}  // namespace vlm::tools
