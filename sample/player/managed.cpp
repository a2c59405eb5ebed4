#include "managed.h"

#include <cstring>

#include "report.h"

Il2CppClass* find_class(const char* image_name, const char* name_space, const char* name) {
  std::size_t count = 0;
  const Il2CppAssembly** assemblies = api.il2cpp_domain_get_assemblies(api.il2cpp_domain_get(), &count);
  for (std::size_t i = 0; i < count; ++i) {
    const Il2CppImage* image = api.il2cpp_assembly_get_image(assemblies[i]);
    if (std::strcmp(api.il2cpp_image_get_name(image), image_name) != 0) continue;
    Il2CppClass* klass = api.il2cpp_class_from_name(image, name_space, name);
    expect(klass != nullptr, "%s has no class %s.%s", image_name, name_space, name);
    return klass;
  }
  fail(EXIT_NOT_AS_EXPECTED, "none of %zu assemblies is %s", count, image_name);
}

const MethodInfo* find_method(Il2CppClass* klass, const char* name, int parameter_count) {
  const MethodInfo* method = api.il2cpp_class_get_method_from_name(klass, name, parameter_count);
  expect(method != nullptr, "class %s has no method %s", api.il2cpp_class_get_name(klass), name);
  return method;
}

FieldInfo* find_field(Il2CppClass* klass, const char* name) {
  FieldInfo* field = api.il2cpp_class_get_field_from_name(klass, name);
  expect(field != nullptr, "class %s has no field %s", api.il2cpp_class_get_name(klass), name);
  return field;
}

Il2CppObject* invoke(const MethodInfo* method, Il2CppObject* self, void** arguments) {
  Il2CppException* exception = nullptr;
  Il2CppObject* result = api.il2cpp_runtime_invoke(method, self, arguments, &exception);
  if (exception != nullptr) {
    char text[512];
    api.il2cpp_format_exception(exception, text, sizeof text);
    fail(EXIT_NOT_AS_EXPECTED, "%s raised %s", api.il2cpp_method_get_name(method), text);
  }
  return result;
}
