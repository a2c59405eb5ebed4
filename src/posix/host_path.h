// A game's path in the form that the host's file calls take.
#pragma once

#include <windows.h>

#include <cstddef>

#include "support/handles.h"

namespace vlm {

/// Empty, with shim_errno set, for a null path (EFAULT), an empty one (ENOENT) and one with a name of more than 255
/// characters (ENAMETOOLONG). Lives on the stack of one call: only a path that is too long for the host's plain form
/// takes memory, once.
class HostPath {
 public:
  explicit HostPath(const char* game_path);
  HostPath(const HostPath&) = delete;

  explicit operator bool() const { return text_ != nullptr; }
  const wchar_t* c_str() const { return text_; }

 private:
  void use_long_form(const char* game_path);

  wchar_t short_[MAX_PATH];
  UniqueHeap<wchar_t> long_;
  const wchar_t* text_ = nullptr;
};

}  // namespace vlm
