// The 241 functions that the image exports, declared from the list that the library forwards them by. A definition
// with other parameters is another function, which is not exported; with another result it does not compile. The image
// links only when each of the 241 is defined (sample.cmake).
#pragma once

#include "host/il2cpp_types.h"

#define IL2CPP_FORWARD(result, name, ...) extern "C" result name(__VA_ARGS__);
#define IL2CPP_WRAP(positions, result, name, ...) extern "C" result name(__VA_ARGS__);
#define IL2CPP_LOCAL(result, name, ...) extern "C" result name(__VA_ARGS__);
#include "host/il2cpp_exports.def"
