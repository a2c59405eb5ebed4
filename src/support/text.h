// Text and path conversion between game code (UTF-8, '/') and Windows (UTF-16, '\'), and the library's own place.
#pragma once

#include <string>

#include "support/handles.h"

namespace vlm {

/// A newly allocated UTF-16 Windows path for a UTF-8 game path. A Windows absolute path behind a macOS prefix
/// wins ("/Users/x/C:/Save" is "C:\Save"); every '/' becomes '\'. The caller releases it; null when memory is out.
UniqueHeap<wchar_t> to_host_path(const char* game_path);

/// The same into a buffer. Returns the length without the NUL, or `capacity` when that is too little.
std::size_t to_host_path(const char* game_path, wchar_t* buffer, std::size_t capacity);

/// A newly allocated UTF-8 string for a UTF-16 Windows path, every '\' turned into '/'. Null when memory is out.
UniqueHeap<char> from_host_path(const wchar_t* host_path);
/// The same into a buffer. Returns the length without the NUL, or `capacity` when that is too little.
std::size_t from_host_path(const wchar_t* host_path, char* buffer, std::size_t capacity);

/// UTF-8 to UTF-16 and back (code page 65001); ill-formed text becomes U+FFFD. Null when memory is out.
UniqueHeap<wchar_t> utf16_from_utf8(const char* text);
UniqueHeap<char> utf8_from_utf16(const wchar_t* text);

/// Full path of the file of the module that holds this code, or empty when Windows does not tell it.
std::wstring own_module_path();

/// own_module_path() cut after its last backslash (which stays); the whole name when it has none.
std::wstring own_module_directory();

/// An environment variable's UTF-8 value; `exists` tells an empty one from a missing one.
struct EnvironmentValue {
  bool exists = false;
  std::string text;
};
EnvironmentValue read_environment(const wchar_t* name);

}  // namespace vlm
