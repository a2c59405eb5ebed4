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
