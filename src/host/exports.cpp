// Bodies of the exports that forward to the game: made from the list of signatures.
//
// Each is an ordinary Windows function that calls a System V function pointer: the compiler moves and widens the
// arguments and keeps rsi, rdi and xmm6-xmm15, which System V code may change and Windows callers rely on.
#include "host/forward_table.h"
#include "vlm.h"

namespace vlm {
namespace {

/// A parameter as the game gets it: a callback of the player goes through a stub that game code can call.
template <unsigned Positions, unsigned Position, class T>
T game_argument(T argument) {
  if constexpr ((Positions >> (Position - 1) & 1) != 0) {
    return vlm_wrap_callback(argument);
  } else {
    return argument;
  }
}

}  // namespace
}  // namespace vlm

// Names the parameters of a row: VLM_PARAMETERS(int, char*) is "int a1, char* a2".
#define VLM_PICK(a, b, c, d, e, f, chosen, ...) chosen
#define VLM_ARITY(...) VLM_PICK(__VA_ARGS__ __VA_OPT__(, ) 6, 5, 4, 3, 2, 1, 0)
#define VLM_JOIN_(a, b) a##b
#define VLM_JOIN(a, b) VLM_JOIN_(a, b)
#define VLM_PARAMETERS(...) VLM_JOIN(VLM_PARAMETERS_, VLM_ARITY(__VA_ARGS__))(__VA_ARGS__)
#define VLM_PARAMETERS_0()
#define VLM_PARAMETERS_1(A) A a1
#define VLM_PARAMETERS_2(A, B) A a1, B a2
#define VLM_PARAMETERS_3(A, B, C) A a1, B a2, C a3
#define VLM_PARAMETERS_4(A, B, C, D) A a1, B a2, C a3, D a4
#define VLM_PARAMETERS_5(A, B, C, D, E) A a1, B a2, C a3, D a4, E a5
// VLM_ARGUMENTS(2, positions) is what the game gets for a1, a2.
#define VLM_ARGUMENTS(arity, positions) VLM_JOIN(VLM_ARGUMENTS_, arity)(positions)
#define VLM_ARGUMENT(positions, n) vlm::game_argument<positions, n>(a##n)
#define VLM_ARGUMENTS_0(p)
#define VLM_ARGUMENTS_1(p) VLM_ARGUMENT(p, 1)
#define VLM_ARGUMENTS_2(p) VLM_ARGUMENTS_1(p), VLM_ARGUMENT(p, 2)
#define VLM_ARGUMENTS_3(p) VLM_ARGUMENTS_2(p), VLM_ARGUMENT(p, 3)
#define VLM_ARGUMENTS_4(p) VLM_ARGUMENTS_3(p), VLM_ARGUMENT(p, 4)
#define VLM_ARGUMENTS_5(p) VLM_ARGUMENTS_4(p), VLM_ARGUMENT(p, 5)

#define IL2CPP_FORWARD(result, name, ...) IL2CPP_WRAP(0, result, name __VA_OPT__(, ) __VA_ARGS__)
#define IL2CPP_WRAP(positions, result, name, ...)                                                      \
  extern "C" __declspec(dllexport) result name(VLM_PARAMETERS(__VA_ARGS__)) {                          \
    return vlm::open_function(vlm::open_table.name)(VLM_ARGUMENTS(VLM_ARITY(__VA_ARGS__), positions)); \
  }
#define IL2CPP_LOCAL(result, name, ...)  // local_exports.cpp, internal_calls.cpp
#include "host/il2cpp_exports.def"
