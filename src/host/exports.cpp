// Bodies of the exports that forward to the game.
//
// Each is an ordinary Windows function that calls a System V function pointer: the compiler moves and widens the
// arguments and keeps rsi, rdi and xmm6-xmm15, which System V code may change and Windows callers rely on.
#include "host/forward_table.h"
#include "vlm.h"

#define IL2CPP_FORWARD(result, name, parameters, arguments) \
  extern "C" __declspec(dllexport) result name parameters { return vlm::open_function(vlm::open_table.name) arguments; }
#define IL2CPP_LOCAL(result, name, parameters)
#include "host/il2cpp_exports.def"
