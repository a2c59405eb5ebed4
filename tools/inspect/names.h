// What the numbers of a Mach-O header stand for.
#pragma once

#include <cstdint>
#include <string>

namespace vlm::inspect {

/// "dylib", "r-x"
std::string file_kind(std::uint32_t filetype);
std::string protection(std::uint32_t initprot);

}  // namespace vlm::inspect
