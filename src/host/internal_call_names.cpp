// Finds the managed method that an internal call's name denotes:
//
//   UnityEngine.Outer/Inner/Deepest::Method(System.Int32,System.Single)
//   namespace   class nested in  it  method parameters: only needed to choose among overloads
#include <string>
#include <string_view>

#include "diag/log.h"
#include "host/managed_calls.h"
#include "host/reflection.h"
#include "support/take_until.h"

namespace vlm {
namespace {

constexpr std::size_t max_class_length = 511, max_method_length = 255, max_signature_length = 511;

Il2CppClass* find_outer_class(std::string_view full_name) {
  const std::size_t point = full_name.rfind('.');
  const bool has_namespace = point != full_name.npos;
  const std::string name_space(full_name.substr(0, has_namespace ? point : 0));
  const std::string name(full_name.substr(has_namespace ? point + 1 : 0));
  std::size_t count = 0;
  const Il2CppAssembly** const assemblies = REFLECT(il2cpp_domain_get_assemblies)(REFLECT(il2cpp_domain_get)(), &count);
  if (assemblies == nullptr) return nullptr;
  for (std::size_t i = 0; i < count; ++i) {
    const Il2CppImage* const image = REFLECT(il2cpp_assembly_get_image)(assemblies[i]);
    if (Il2CppClass* const klass = REFLECT(il2cpp_class_from_name)(image, name_space.c_str(), name.c_str())) {
      return klass;
    }
  }
  return nullptr;
}

Il2CppClass* find_nested_class(Il2CppClass* outer, std::string_view name) {
  void* position = nullptr;
  while (Il2CppClass* const nested = REFLECT(il2cpp_class_get_nested_types)(outer, &position)) {
    if (REFLECT(il2cpp_class_get_name)(nested) == name) return nested;
  }
  return nullptr;
}

Il2CppClass* find_class(std::string_view path) {
  Il2CppClass* klass = find_outer_class(take_until(path, '/'));
  while (klass != nullptr && !path.empty()) klass = find_nested_class(klass, take_until(path, '/'));
  return klass;
}

/// "(System.Int32,System.Single)"
std::string signature_of(const MethodInfo* method) {
  std::string signature = "(";
  const std::uint32_t count = REFLECT(il2cpp_method_get_param_count)(method);
  for (std::uint32_t i = 0; i < count; ++i) {
    char* const name = REFLECT(il2cpp_type_get_name)(REFLECT(il2cpp_method_get_param)(method, i));
    if (i != 0) signature += ',';
    if (name != nullptr) signature += name;
    REFLECT(il2cpp_free)(name);
  }
  signature += ')';
  return signature.substr(0, max_signature_length);
}

/// The class's internal call of that name: the one with exactly that signature, else the first.
const MethodInfo* find_internal_call(Il2CppClass* klass, std::string_view name, std::string_view signature) {
  const MethodInfo* first = nullptr;
  void* position = nullptr;
  while (const MethodInfo* const method = REFLECT(il2cpp_class_get_methods)(klass, &position)) {
    std::uint32_t implementation_flags = 0;
    REFLECT(il2cpp_method_get_flags)(method, &implementation_flags);
    if ((implementation_flags & METHOD_IMPL_ATTRIBUTE_INTERNAL_CALL) == 0) continue;
    if (REFLECT(il2cpp_method_get_name)(method) != name) continue;
    if (signature.empty() || signature_of(method) == signature) return method;
    if (first == nullptr) first = method;
  }
  return first;
}

}  // namespace

void resolve_icall_record(IcallRecord& record) {
  record.state = -1;
  const std::string_view name = record.name;
  const std::size_t colons = name.find("::");
  if (colons == name.npos) return;
  Il2CppClass* const klass = find_class(name.substr(0, colons).substr(0, max_class_length));
  if (klass == nullptr) return log_message(0, "[icall] class not found for %s", record.name);

  const std::string_view method_part = name.substr(colons + 2).substr(0, max_method_length);
  const std::size_t parenthesis = method_part.find('(');
  const std::string_view signature = parenthesis != method_part.npos ? method_part.substr(parenthesis) : "";
  const MethodInfo* const method = find_internal_call(klass, method_part.substr(0, parenthesis), signature);
  if (method == nullptr) return log_message(0, "[icall] no internal-call method for %s", record.name);
  classify_method(method, record);
  record.state = 1;
}

}  // namespace vlm
