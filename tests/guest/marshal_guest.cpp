// The methods of signatures.h in a miniature runtime, and a few classes to look names up in. Calls what is registered,
// or any code, with the arguments of a case.
#include "reflection_runtime.h"

#include "darwin_threads.h"

// ---- The cases as methods, and how to call them --------------------------------------------------------------------

template <unsigned I, class = UpTo<Case<I>::count>>
struct CaseMethod;
template <unsigned I, unsigned... P>
struct CaseMethod<I, Numbers<unsigned, P...>> {
  template <unsigned N>
  using Argument = typename Case<I>::template Argument<N>;
  using Result = typename Case<I>::Result;
  static constexpr const Type* (*types[Case<I>::count + 1])() = {&TypeOf<Argument<P>>::get..., nullptr};

  static void run(void* code, const Byte* arguments, Byte* result, const Method* method) {
    using Function = Result (*)(Argument<P>..., const Method*);  // what takes no method does not see it
    const auto call = [&] {
      return reinterpret_cast<Function>(code)(*reinterpret_cast<const Argument<P>*>(arguments + slot_size * P)...,
                                              method);
    };
    if constexpr (__is_same(Result, void)) {
      call();
    } else {
      *reinterpret_cast<Result*>(result) = call();
    }
  }
};

static char case_names[case_count][8];
template <class>
struct Cases;
template <unsigned... I>
struct Cases<Numbers<unsigned, I...>> {
  static constexpr Method methods[] = {{case_names[I], Case<I>::instance, 0x1000, Case<I>::count - Case<I>::instance,
                                        CaseMethod<I>::types + Case<I>::instance,
                                        &TypeOf<typename Case<I>::Result>::get}...};
  static constexpr void (*runners[])(void*, const Byte*, Byte*, const Method*) = {&CaseMethod<I>::run...};
};
using AllCases = Cases<UpTo<case_count>>;

// ---- Classes to look names up in -----------------------------------------------------------------------------------

using Huge =
    S2<S4<S2<double, double>, double, double, double>, S4<double, double, double, double>>;  // more than is passed

static constexpr const Type* (*types[])() = {&TypeOf<int>::get, &TypeOf<float>::get, &TypeOf<Huge>::get};
static constexpr Method takes(const char* name, int type, uint32 flags = 0x1000, uint32 count = 1) {
  return {name, false, flags, count, types + type, type == 1 ? types[1] : types[0]};
}
static const Method deep_method = takes("Half", 1);
static const Method outer_methods[] = {
    takes("Overloaded", 0, 0, 2),  // managed: not for the player
    takes("Overloaded", 0),       takes("Overloaded", 1), takes("Managed", 0, 0), takes("Large", 2), takes("Slow", 0),
    takes("Many", 0, 0x1000, 23)};
static const Class deep = {.name = "Deep", .methods = &deep_method, .method_count = 1};
static const Class inner = {.name = "Inner", .nested = {&deep}}, other = {.name = "Other"};
static const Class outer = {.name = "Outer",
                            .name_space = "Game.Space",
                            .methods = outer_methods,
                            .method_count = 7,
                            .nested = {&other, &inner}};
static const Class cases = {.name = "Cases", .methods = AllCases::methods, .method_count = case_count};
static const Image images[] = {{{&cases, &other}}, {{&outer, nullptr}}};
const Image* reflection::assemblies[] = {&images[0], &images[1], nullptr};

extern "C" {

int32 il2cpp_init(const char*) {
  for (uint32 i = 0; i < case_count; ++i) snprintf(case_names[i], sizeof case_names[i], "m%u", i);
  return 0;
}

void run_case(uint32 number, void* code, const Byte* arguments, Byte* result) {
  AllCases::runners[number](code, arguments, result, &AllCases::methods[number]);
}
const Method* case_method(uint32 number) { return &AllCases::methods[number]; }
const Method* many_parameters() { return &outer_methods[6]; }

/// Calls a registered function as managed code does: (float) -> float, (int) -> int. Values travel as their bits.
uint32 call_with_float(const char* name, uint32 bits) {
  const auto function = reinterpret_cast<float (*)(float)>(il2cpp_resolve_icall(name));
  return __builtin_bit_cast(uint32, function(__builtin_bit_cast(float, bits)));
}
uint32 call_with_int(const char* name, uint32 value) {
  return reinterpret_cast<uint32 (*)(uint32)>(il2cpp_resolve_icall(name))(value);
}
/// Of eight threads of the game that call at once, those that get this answer and keep their precision of the x87.
uint32 count_answers(const char* name, uint32 answer) {
  uint32 right = 0;
  run_on_threads(8, [&](int64) {
    short word = 0;
    const bool answered = call_with_int(name, 0) == answer;
    asm volatile("fnstcw %0" : "=m"(word));
    __atomic_fetch_add(&right, answered && word == 0x037F, __ATOMIC_SEQ_CST);
  });
  return right;
}
}
