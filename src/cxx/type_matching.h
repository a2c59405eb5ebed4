// Which catch clause takes an exception, told from the std::type_info objects that compiled code brings along, and what
// its handler receives. Layouts of <cxxabi.h>, Itanium C++ ABI.
#pragma once

#include <cstdint>
#include <optional>

namespace vlm {

/// The name of a type, or null when it has none: no type, or one whose std::type_info was imported and not found.
const char* type_name(std::uint64_t type);

/// True for the type of a pointer: an exception of it holds the pointer, and handlers take its value.
bool is_pointer_type(std::uint64_t type);

/// What a clause for `caught` receives of an exception of type `thrown`, or nothing when it does not take it.
///   caught  0 catches everything
///   value   the thrown pointer, or the address of the thrown object
std::optional<std::uint64_t> match_type(std::uint64_t caught, std::uint64_t thrown, std::uint64_t value);

}  // namespace vlm
