// Types: what a field, a parameter or a result is declared as.
#include "runtime/runtime.h"

void append_type_name(Text& text, const Il2CppType* type, const char* nesting) {
  const Il2CppClass* klass = type->klass;
  if (klass->is_array()) {
    append_type_name(text, &klass->element->type, nesting);
    text << "[]";
  } else if (klass->declaring != nullptr) {
    append_type_name(text, &klass->declaring->type, nesting);
    text << nesting << klass->name;
  } else {
    if (klass->name_space[0] != 0) text << klass->name_space << ".";
    text << klass->name;
  }
  if (type->by_reference) text << "&";
}

int il2cpp_type_get_type(const Il2CppType* type) { return type->code; }
bool il2cpp_type_is_byref(const Il2CppType* type) { return type->by_reference; }
uint32_t il2cpp_type_get_attrs(const Il2CppType*) { return 0; }
Il2CppClass* il2cpp_type_get_class_or_element_class(const Il2CppType* type) {
  return type->klass->is_array() ? type->klass->element : type->klass;
}

bool il2cpp_type_equals(const Il2CppType* left, const Il2CppType* right) {
  return left->klass == right->klass && left->by_reference == right->by_reference;
}

/// Abstract and sealed together is how a static class is told.
bool il2cpp_type_is_static(const Il2CppType* type) {
  constexpr uint32_t both = CLASS_ABSTRACT | CLASS_SEALED;
  return (type->klass->flags & both) == both;
}

/// The game has no pointer types.
bool il2cpp_type_is_pointer_type(const Il2CppType*) { return false; }

// The texts are the caller's, who gives them back with il2cpp_free.

char* il2cpp_type_get_name(const Il2CppType* type) {
  Text name;
  append_type_name(name, type);
  return strdup(name.c_str());
}

/// As System.Type.FullName has it: a nested class after a '+'.
char* il2cpp_type_get_reflection_name(const Il2CppType* type) {
  Text name;
  append_type_name(name, type, "+");
  return strdup(name.c_str());
}

char* il2cpp_type_get_assembly_qualified_name(const Il2CppType* type) {
  Text name;
  append_type_name(name, type, "+");
  name << ", " << il2cpp_class_get_assemblyname(type->klass);
  return strdup(name.c_str());
}

/// Reports a name piece by piece for callers without memory to spare; here it is one piece.
void il2cpp_type_get_name_chunked(const Il2CppType* type, Il2CppCallback report, void* user_data) {
  Text name;
  append_type_name(name, type);
  reinterpret_cast<void (*)(const char*, void*)>(report)(name.c_str(), user_data);
}

Il2CppObject* il2cpp_type_get_object(const Il2CppType* type) {
  auto* object = reinterpret_cast<Il2CppReflectionType*>(il2cpp_object_new(&runtime_type_class));
  object->type = type;
  return &object->object;
}
