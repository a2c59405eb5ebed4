// What the files of the runtime and the game ask of each other beyond the exported interface.
#pragma once

#include <stdlib.h>

#include "runtime/model.h"
#include "runtime/text.h"

/// For tables that several threads change. It spins: nothing here is held for longer than a few instructions.
class SpinLock {
 public:
  void lock() {
    while (__atomic_test_and_set(&taken_, __ATOMIC_ACQUIRE)) __builtin_ia32_pause();
  }
  void unlock() { __atomic_clear(&taken_, __ATOMIC_RELEASE); }

 private:
  bool taken_ = false;
};

class Locked {
 public:
  explicit Locked(SpinLock& lock) : lock_(lock) { lock_.lock(); }
  ~Locked() { lock_.unlock(); }

 private:
  SpinLock& lock_;
};

// domain.cpp
Il2CppDomain& domain();

// callbacks.cpp
/// One line: to the player's log callback, or to the standard output while there is none.
void log(const Text& text);
/// The file name of a native plug-in, as the player knows it. The player's text stays its own.
const char* find_plugin(const char* name);

// setup.cpp
struct Settings {
  int argument_count;
  char* data_directory;
};
extern Settings settings;

// classes.cpp
/// Bytes that a variable of the type occupies: a reference's 8, or the value itself.
size_t size_of(const Il2CppType* type);

// types.cpp
void append_type_name(Text& text, const Il2CppType* type, const char* nesting = ".");

// gc.cpp
Il2CppObject* new_object(const Il2CppClass* klass, size_t size);

// strings.cpp
Il2CppString* new_string(const Text& text);
/// UTF-8 for a managed string, which may be null; ill-formed text becomes U+FFFD.
Text utf8_of(const Il2CppString* string);
char* utf8_copy(const Il2CppChar* text);

// exceptions.cpp
/// What is thrown for a managed exception.
struct Raised {
  Il2CppException* exception;
};
void raise(const Il2CppClass& klass, const Text& message);
Text describe(const Il2CppException* exception);

// internal_calls.cpp
/// What is registered under the name; raises a MissingMethodException when nothing is.
Il2CppCallback find_internal_call(const char* name);
void append_internal_call_name(Text& text, const MethodInfo* method);

// frames.cpp
/// An invocation on the calling thread's stack.
struct Frame {
  explicit Frame(const MethodInfo* method);
  ~Frame();
  const MethodInfo* method;
  Frame* caller = nullptr;
};
const MethodInfo* running_method();
