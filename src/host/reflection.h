// The game's reflection functions: how the library learns what a method takes and returns.
#pragma once

#include "host/forward_table.h"
#include "macho/load.h"

namespace vlm {

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

/// Written once by resolve_reflection_api() during start-up, before the game runs; read-only afterwards.
struct ReflectionApi {
  const MachImage* image;  // null until resolved
#define X(name) decltype(ForwardTable::name) name;
  REFLECTION_FUNCTIONS(X)
#undef X
};
extern ReflectionApi reflection_api;

/// Looks the functions up among the image's exports. What is missing is null here: its first use is fatal.
void resolve_reflection_api(const MachImage& image);

}  // namespace vlm

/// A reflection function, for a call; fatal when the image lacks it.
#define REFLECT(name) ::vlm::game_function(::vlm::reflection_api.name, #name)
