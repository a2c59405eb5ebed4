// What the spelling of an import without an implementation says about it.
#pragma once

#include <string_view>

namespace vlm {

/// True for a symbol whose name says that it is data. For such an import a zeroed object is safer than a stub, whose
/// code the game would read as data.
bool is_data_name(std::string_view name);

/// True for the function that binds lazy pointers. Every image imports it, but the loader has bound them all before the
/// image runs.
constexpr bool is_lazy_binder(std::string_view name) { return name == "dyld_stub_binder"; }

}  // namespace vlm
