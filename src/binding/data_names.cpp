#include "binding/data_names.h"

#include <algorithm>

namespace vlm {
namespace {

constexpr std::string_view data_prefixes[] = {
    "_OBJC_CLASS_$_", "_OBJC_METACLASS_$_", "__objc_empty_cache", "___CFConstantString", "_kCF", "__ZTI", "__ZTS",
    "__ZTV",          "_NSLocale",          "_GKPlayerDid",       "_NSUbiquitous",
};

}  // namespace

bool is_data_name(std::string_view name) {
  if (name.starts_with("__ZNK")) return false;  // a const member function, whatever its name ends in
  if (std::ranges::any_of(data_prefixes, [&](std::string_view prefix) { return name.starts_with(prefix); }))
    return true;
  return name.size() >= 5 && name.ends_with("2idE");  // a static member `id`: the C++ library's locale facets
}

}  // namespace vlm
