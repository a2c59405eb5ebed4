// Names as people and programs may read them: a file's names can hold any bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vlm::inspect {

/// Bytes of the well-formed UTF-8 sequence that `text` begins with, or 0.
std::size_t utf8_length(std::string_view text);

/// For a terminal: bytes that are no text, control characters among them, as "\x1b".
std::string printable(std::string_view name);

/// What a number of a Mach-O header stands for: "x86-64", "dylib", "r-x".
std::string cpu_name(std::uint32_t cputype);
std::string file_kind(std::uint32_t filetype);
std::string protection(std::uint32_t initprot);

}  // namespace vlm::inspect
