// Exceptions.
//
// A raised exception is thrown as a C++ exception, through the functions of managed methods and through Windows code
// between them, up to the invocation that they run in. Where none is, it is reported, and code that raises goes on.
#include "runtime/runtime.h"

#include "runtime/thread_storage.h"
#include "runtime/threads.h"

static Il2CppException* new_exception(const Il2CppClass& klass, const Text& message) {
  auto* exception = reinterpret_cast<Il2CppException*>(il2cpp_object_new(&klass));
  exception->message = new_string(message);
  return exception;
}

void raise(const Il2CppClass& klass, const Text& message) { il2cpp_raise_exception(new_exception(klass, message)); }

void il2cpp_raise_exception(Il2CppException* exception) {
  count_event(EVENT_EXCEPTION);
  exception->raised_in = running_method();
  if (invocation_depth() > 0) throw Raised{exception};
  il2cpp_unhandled_exception(exception);
}

/// "System.Exception: text"
Text describe(const Il2CppException* exception) {
  Text text;
  append_type_name(text, &exception->object.klass->type);
  const Text message = utf8_of(exception->message);
  return text << ": " << message.c_str();
}

void il2cpp_unhandled_exception(Il2CppException* exception) {
  log(Text() << "game: unhandled " << describe(exception).c_str());
}

Il2CppException* il2cpp_get_exception_argument_null(const char* argument) {
  return new_exception(argument_null_exception_class, Text() << "Value cannot be null: " << argument);
}

static void copy_cut(const Text& text, char* buffer, int size) {
  if (size <= 0) return;
  size_t length = text.size();
  if (length > static_cast<size_t>(size) - 1) length = static_cast<size_t>(size) - 1;
  memcpy(buffer, text.c_str(), length);
  buffer[length] = 0;
}

void il2cpp_format_exception(const Il2CppException* exception, char* buffer, int size) {
  copy_cut(describe(exception), buffer, size);
}

/// The method that raised the exception is all that is kept.
void il2cpp_format_stack_trace(const Il2CppException* exception, char* buffer, int size) {
  Text text;
  if (exception->raised_in != nullptr) {
    text << "at ";
    append_type_name(text, &exception->raised_in->parent->type);
    text << "." << exception->raised_in->name;
  }
  copy_cut(text, buffer, size);
}
