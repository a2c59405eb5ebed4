// A game's path in the form that Windows' file calls take.
//
// Most paths are taken as they are, with '\' for '/'. Windows ends a plain path at 260 characters and reads some names
// in its own way: "NUL" and "aux.txt" are devices, "save." and "save " are "save". Such a path becomes the extended
// form ("\\?\C:\saves\aux.txt"), which reaches a file of exactly that name. Windows then no longer reads '.' and '..'
// either, so that is done before.
#pragma once

#include <windows.h>

#include "support/handles.h"

namespace vlm {

/// Lives on the stack of one call: only the extended form takes memory. What begins with "\\?\" or "\\.\" stays as it
/// is. Empty for what no file can be called: no text, a name of more than 255 characters, a colon behind the drive's
/// (Windows would write to a hidden stream of another file, or below the current folder of a drive).
class WindowsPath {
 public:
  explicit WindowsPath(const char* game_path);
  WindowsPath(const WindowsPath&) = delete;

  explicit operator bool() const { return text_ != nullptr; }
  const wchar_t* c_str() const { return text_; }

  /// Why it is empty: what Windows says of such a path.
  DWORD error() const { return error_; }

 private:
  void use_extended_form(const wchar_t* given, std::size_t length);

  wchar_t short_[MAX_PATH];
  UniqueHeap<wchar_t> extended_;
  const wchar_t* text_ = nullptr;
  DWORD error_ = ERROR_SUCCESS;
};

}  // namespace vlm
