// What nobody calls of the interface: each function of the list that no other file defines returns zero. A game of full
// size has them all; none is needed to be loaded and played here.
#include "runtime/exports.h"

#define IL2CPP_FORWARD(result, name, parameters, arguments) IL2CPP_LOCAL(result, name, parameters)
#define IL2CPP_LOCAL(result, name, parameters)      \
  extern "C" [[gnu::weak]] result name parameters { \
    using Result = result;                          \
    return Result();                                \
  }
#include "host/il2cpp_exports.def"
