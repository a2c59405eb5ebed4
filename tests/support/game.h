// The library in the process of a test program, and the game behind it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "support/leave.h"
#include "vlm.h"

namespace vlm::test {

constexpr const char* default_library = "GameAssembly.dll";  // beside the program
inline std::string library_path = default_library;
inline HMODULE library;

/// An export of the library; without it the program ends.
template <class Function>
Function library_function(const char* name) {
  void* const function = reinterpret_cast<void*>(GetProcAddress(library, name));
  if (function == nullptr) std::printf("GameAssembly.dll does not export %s\n", name), std::exit(1);
  return reinterpret_cast<Function>(function);
}

/// Loads the library, for this image or for the one beside it. The first call of an il2cpp_ function starts the game.
/// Paths are UTF-8.
inline void load_library(const char* image = nullptr) {
  const auto wide = [](std::string_view path) {
    return std::filesystem::path(std::u8string(path.begin(), path.end())).make_preferred().wstring();
  };
  if (image != nullptr) SetEnvironmentVariableW(L"VLM_GAMEASSEMBLY", wide(image).c_str());
  library = LoadLibraryW(wide(library_path).c_str());
  if (library == nullptr)
    std::printf("cannot load %s: error %lu\n", library_path.c_str(), GetLastError()), std::exit(1);
}
inline int start_game(const char* domain = "game") {
  return library_function<int (*)(const char*)>("il2cpp_init")(domain);
}

/// Where the library lies, and its log below, with a trailing backslash.
inline std::wstring library_folder() {
  wchar_t path[1024];
  const std::wstring file(path, GetModuleFileNameW(library, path, 1024));
  return file.substr(0, file.find_last_of(L'\\') + 1);
}

/// Where the game has a variable or a function of this name: null, or the end of the program, when it has none.
inline void* find_symbol(const char* name) {
  return library_function<decltype(&vlm_native_symbol)>("vlm_native_symbol")(name);
}
inline void* game_symbol(const char* name) {
  void* const address = find_symbol(name);
  if (address == nullptr) std::printf("the game has no %s\n", name), std::exit(1);
  return address;
}
template <class T>
T& game_variable(const char* name) {
  return *static_cast<T*>(game_symbol(name));
}

/// A function of the game that takes integers and pointers.
template <class R, class... A>
auto game_function(void* address) {
  const auto wrap = library_function<decltype(&vlm_wrap_sysv_function)>("vlm_wrap_sysv_function");
  return reinterpret_cast<R (*)(A...)>(wrap(address, sizeof...(A)));
}
template <class R, class... A>
R call_game(const char* name, A... arguments) {
  return game_function<R, A...>(game_symbol(name))(arguments...);
}

/// What the game calls to call a function of this program.
template <class Function>
void* callback(Function* function) {
  return library_function<decltype(&vlm_wrap_callback)>("vlm_wrap_callback")(reinterpret_cast<void*>(function));
}

}  // namespace vlm::test
