// A game's path for the host's file calls, in a shim.
#pragma once

#include "posix/error_numbers.h"
#include "support/windows_path.h"

namespace vlm {

/// Empty, with shim_errno set, for a null path (EFAULT), an empty one (ENOENT), one with a name of more than 255
/// characters (ENAMETOOLONG) and one that no file can have.
class HostPath : public WindowsPath {
 public:
  explicit HostPath(const char* game_path) : WindowsPath(game_path) {
    if (!*this) shim_errno = game_path == nullptr ? DARWIN_EFAULT : errno_from_win32(error());
  }
};

}  // namespace vlm
