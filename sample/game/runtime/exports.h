// The 241 functions that the image exports, declared from the list that the library forwards them by. A definition
// whose signature differs does not compile; a function without a definition does not link (see sample.cmake).
#pragma once

#include "host/il2cpp_types.h"

#define IL2CPP_FORWARD(result, name, ...) extern "C" result name(__VA_ARGS__);
#define IL2CPP_WRAP(positions, result, name, ...) extern "C" result name(__VA_ARGS__);
#define IL2CPP_LOCAL(result, name, ...) extern "C" result name(__VA_ARGS__);
#include "host/il2cpp_exports.def"
#undef IL2CPP_FORWARD
#undef IL2CPP_WRAP
#undef IL2CPP_LOCAL
