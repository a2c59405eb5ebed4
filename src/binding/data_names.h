// Which imports without an implementation are data.
#pragma once

#include <string_view>

namespace vlm {

/// True for a symbol that is data by its spelling: a zeroed object that game code may read is safer than a stub that it
/// would read as data.
bool is_data_name(std::string_view name);

}  // namespace vlm
