// Rows of method tables, made from C++ functions.
//
//   static int32_t Game_get_Score(Game* self, const MethodInfo*) { ... }
//   MethodInfo methods[] = {instance_method<Game_get_Score>("get_Score", &int32_class.type), ...};
#pragma once

#include "runtime/runtime.h"

template <class Function>
struct Invocation;

/// Calls a function of this type with what an Invoker is given.
template <class Result, class... A>
struct Invocation<Result (*)(A...)> {
  template <class T>
  static T argument(const MethodInfo* method, void* self, void** arguments, int position) {
    if constexpr (__is_same(T, const MethodInfo*)) {
      return method;
    } else {
      const int before = method->is_static() ? 0 : 1;  // the instance comes before the parameters
      void* given = position < before ? self : arguments[position - before];
      if constexpr (__is_pointer(T)) {
        return static_cast<T>(given);
      } else {
        return *static_cast<T*>(given);
      }
    }
  }

  template <class, int... positions>
  struct Positions {
    static Il2CppObject* invoke(const MethodInfo* method, void* self, void** arguments) {
      // Through the row and not directly: a mod may have put another function there.
      const auto code = reinterpret_cast<Result (*)(A...)>(method->code);
      if constexpr (__is_same(Result, void)) {
        code(argument<A>(method, self, arguments, positions)...);
        return nullptr;
      } else {
        Result result = code(argument<A>(method, self, arguments, positions)...);
        if constexpr (__is_pointer(Result)) {
          return reinterpret_cast<Il2CppObject*>(result);
        } else {
          return il2cpp_value_box(method->returns->klass, &result);
        }
      }
    }
  };
  static constexpr Invoker invoker = &__make_integer_seq<Positions, int, int(sizeof...(A))>::invoke;
};

template <auto function>
MethodInfo managed_method(const char* name, const Il2CppType* returns, Rows<const ParameterInfo> parameters,
                          uint32_t flags) {
  return {reinterpret_cast<void*>(function), Invocation<decltype(function)>::invoker, name, returns, parameters, flags};
}

template <auto function>
MethodInfo static_method(const char* name, const Il2CppType* returns, Rows<const ParameterInfo> parameters = {}) {
  return managed_method<function>(name, returns, parameters, METHOD_PUBLIC | METHOD_STATIC);
}

template <auto function>
MethodInfo instance_method(const char* name, const Il2CppType* returns, Rows<const ParameterInfo> parameters = {}) {
  return managed_method<function>(name, returns, parameters, METHOD_PUBLIC);
}

/// A method whose code the player registers under its name.
template <class Function>
MethodInfo internal_call(const char* name, const Il2CppType* returns, Rows<const ParameterInfo> parameters = {}) {
  return {nullptr,
          Invocation<Function>::invoker,
          name,
          returns,
          parameters,
          METHOD_PUBLIC | METHOD_STATIC,
          METHOD_INTERNAL_CALL};
}

/// Managed code's way to an internal call: looked up by name once, then called directly.
template <class Function>
class InternalCall;

template <class Result, class... A>
class InternalCall<Result(A...)> {
 public:
  constexpr explicit InternalCall(const char* name) : name_(name) {}

  Result operator()(A... arguments) {
    if (code_ == nullptr) code_ = reinterpret_cast<Result (*)(A...)>(find_internal_call(name_));
    if (code_ == nullptr) return Result();  // outside an invocation nothing is thrown
    return code_(arguments...);
  }

 private:
  const char* name_;
  Result (*code_)(A...) = nullptr;
};
