// A game to be measured: the real library with an image of loops in it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "vlm.h"

namespace vlm::bench {

inline HMODULE library;

/// A function of the library, of this type; without it the program ends.
template <class Function>
Function* export_of(const char* name) {
  void* const address = reinterpret_cast<void*>(GetProcAddress(library, name));
  if (address == nullptr) {
    std::fprintf(stderr, "GameAssembly.dll has no %s\n", name);
    std::exit(1);
  }
  return reinterpret_cast<Function*>(address);
}

/// Loads the library beside this program, and with it the image (null: GameAssembly.dylib beside it), and starts the
/// runtime.
inline void start_game(const char* image) {
  SetEnvironmentVariableA("VLM_GAMEASSEMBLY", image);
  library = LoadLibraryA("GameAssembly.dll");
  export_of<int(const char*)>("il2cpp_init")("bench");
}

/// A function or variable of the image; without it the program ends.
inline void* symbol_of_game(const char* name) {
  void* const address = export_of<decltype(vlm_native_symbol)>("vlm_native_symbol")(name);
  if (address == nullptr) {
    std::fprintf(stderr, "the image has no %s\n", name);
    std::exit(1);
  }
  return address;
}

template <class Function>
inline constexpr std::uint32_t argument_count = 0;
template <class Result, class... A>
inline constexpr std::uint32_t argument_count<Result(A...)> = sizeof...(A);

/// A function of the image, as Windows code can call it.
template <class Function>
Function* function_of_game(const char* name) {
  void* const wrapped = export_of<decltype(vlm_wrap_sysv_function)>("vlm_wrap_sysv_function")(
      symbol_of_game(name), argument_count<Function>);
  return reinterpret_cast<Function*>(wrapped);
}

}  // namespace vlm::bench
