// mscorlib.dll: the classes that every runtime has to have.
#include "runtime/runtime.h"

#define VALUE(variable, text, code, bytes)                                 \
  Il2CppClass variable = {.name = text,                                    \
                          .name_space = "System",                          \
                          .parent = &value_type_class,                     \
                          .type = {&variable, code},                       \
                          .flags = CLASS_PUBLIC | CLASS_SEALED,            \
                          .instance_size = sizeof(Il2CppObject) + (bytes), \
                          .alignment = (bytes) == 0 ? 1 : (bytes)}
#define REFERENCE(variable, space, text, base, size) \
  Il2CppClass variable = {                           \
      .name = text, .name_space = space, .parent = base, .type = {&variable, TYPE_CLASS}, .instance_size = (size)}

Il2CppClass object_class = {.name = "Object",
                            .name_space = "System",
                            .type = {&object_class, TYPE_OBJECT},
                            .instance_size = sizeof(Il2CppObject)};
REFERENCE(value_type_class, "System", "ValueType", &object_class, sizeof(Il2CppObject));
REFERENCE(enum_class, "System", "Enum", &value_type_class, sizeof(Il2CppObject));
VALUE(void_class, "Void", TYPE_VOID, 0);
VALUE(boolean_class, "Boolean", TYPE_BOOLEAN, 1);
VALUE(byte_class, "Byte", TYPE_U1, 1);
VALUE(char_class, "Char", TYPE_CHAR, 2);
VALUE(int32_class, "Int32", TYPE_I4, 4);
VALUE(uint32_class, "UInt32", TYPE_U4, 4);
VALUE(int64_class, "Int64", TYPE_I8, 8);
VALUE(single_class, "Single", TYPE_R4, 4);
VALUE(double_class, "Double", TYPE_R8, 8);
VALUE(intptr_class, "IntPtr", TYPE_I, 8);
Il2CppClass string_class = {.name = "String",
                            .name_space = "System",
                            .parent = &object_class,
                            .type = {&string_class, TYPE_STRING},
                            .flags = CLASS_PUBLIC | CLASS_SEALED,
                            .instance_size = sizeof(Il2CppString)};
REFERENCE(array_class, "System", "Array", &object_class, sizeof(Il2CppArray));

static FieldInfo exception_fields[] = {{"_message", &string_class.type, 0, offsetof(Il2CppException, message)}};
Il2CppClass exception_class = {.name = "Exception",
                               .name_space = "System",
                               .parent = &object_class,
                               .type = {&exception_class, TYPE_CLASS},
                               .instance_size = sizeof(Il2CppException),
                               .fields = exception_fields};
REFERENCE(argument_null_exception_class, "System", "ArgumentNullException", &exception_class, sizeof(Il2CppException));
REFERENCE(missing_method_exception_class, "System", "MissingMethodException", &exception_class,
          sizeof(Il2CppException));
REFERENCE(thread_class, "System.Threading", "Thread", &object_class, sizeof(Il2CppObject));

static Il2CppClass* const classes[] = {&object_class,
                                       &value_type_class,
                                       &enum_class,
                                       &void_class,
                                       &boolean_class,
                                       &byte_class,
                                       &char_class,
                                       &int32_class,
                                       &uint32_class,
                                       &int64_class,
                                       &single_class,
                                       &double_class,
                                       &intptr_class,
                                       &string_class,
                                       &array_class,
                                       &exception_class,
                                       &argument_null_exception_class,
                                       &missing_method_exception_class,
                                       &thread_class};

static Il2CppImage image = {"mscorlib.dll", classes};
static Il2CppAssembly assembly = {"mscorlib", &image};
static const AssemblyRegistration registration(assembly);

const Il2CppImage* il2cpp_get_corlib() { return object_class.image; }
