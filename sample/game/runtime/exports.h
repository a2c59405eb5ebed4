// The functions that the image exports, declared from the list that the library forwards them by. A definition
// with other parameters or another result does not compile. absent.cpp defines those that no other file does.
#pragma once

#include "host/il2cpp_types.h"

#define IL2CPP_FORWARD(result, name, parameters, arguments) extern "C" result name parameters;
#define IL2CPP_LOCAL(result, name, parameters) extern "C" result name parameters;
#include "host/il2cpp_exports.def"
