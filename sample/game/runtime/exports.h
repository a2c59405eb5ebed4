// The functions that the image exports, declared from the list that the library forwards them by. A definition
// with other parameters is another function, which is not exported; with another result it does not compile. The image
// links only when each of them is defined (sample.cmake).
#pragma once

#include "host/il2cpp_types.h"

#define IL2CPP_FORWARD(result, name, parameters, arguments) extern "C" result name parameters;
#define IL2CPP_LOCAL(result, name, parameters) extern "C" result name parameters;
#include "host/il2cpp_exports.def"
