// What the spelling of an import without an implementation says about it.
#pragma once

#include <string_view>

namespace vlm {

/// True for a symbol that is data by its spelling: a zeroed object that game code may read is safer than a stub that it
/// would read as data.
bool is_data_name(std::string_view name);

/// True for what every image imports to bind its lazy pointers with: they are bound already when it starts.
constexpr bool is_lazy_binder(std::string_view name) { return name == "dyld_stub_binder"; }

}  // namespace vlm
