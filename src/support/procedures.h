// Functions of Windows that not every version has, or that are looked up late on purpose.
#pragma once

#include <windows.h>

namespace vlm {

/// A function of a loaded module, as a pointer of the given type. Null when the module is null or has no such function.
template <class Function>
Function* find_procedure(HMODULE module, const char* name) {
  if (module == nullptr) return nullptr;
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

}  // namespace vlm
