// The names that the library looks up in a game image; as data, so that a tool can tell what an image lacks.
#pragma once

namespace vlm {

/// Symbols of the exports, in the order of the forward table.
inline constexpr const char* export_symbols[] = {
#define IL2CPP_FORWARD(result, name, parameters, arguments) "_" #name,
#define IL2CPP_LOCAL(result, name, parameters) "_" #name,
#include "host/il2cpp_exports.def"
};

/// The game's reflection functions: how the library learns what a method takes and returns.
#define REFLECTION_FUNCTIONS(X)    \
  X(il2cpp_domain_get)             \
  X(il2cpp_domain_get_assemblies)  \
  X(il2cpp_assembly_get_image)     \
  X(il2cpp_class_from_name)        \
  X(il2cpp_class_get_nested_types) \
  X(il2cpp_class_get_name)         \
  X(il2cpp_class_get_methods)      \
  X(il2cpp_method_get_name)        \
  X(il2cpp_method_get_param_count) \
  X(il2cpp_method_get_param)       \
  X(il2cpp_method_get_return_type) \
  X(il2cpp_method_is_instance)     \
  X(il2cpp_method_get_flags)       \
  X(il2cpp_type_get_type)          \
  X(il2cpp_type_is_byref)          \
  X(il2cpp_type_get_name)          \
  X(il2cpp_class_from_type)        \
  X(il2cpp_class_is_enum)          \
  X(il2cpp_class_enum_basetype)    \
  X(il2cpp_class_is_valuetype)     \
  X(il2cpp_class_value_size)       \
  X(il2cpp_class_get_fields)       \
  X(il2cpp_field_get_flags)        \
  X(il2cpp_field_get_offset)       \
  X(il2cpp_field_get_type)         \
  X(il2cpp_free)

inline constexpr const char* reflection_symbols[] = {
#define X(name) "_" #name,
    REFLECTION_FUNCTIONS(X)
#undef X
};

}  // namespace vlm
