// What errors of Windows and of its C runtime are called on macOS.
#pragma once

#include <cstdint>

#include "support/darwin_errno.h"

namespace vlm {

/// The Darwin number for a GetLastError() code; EIO for a code without a better one, 0 included.
std::int32_t errno_from_win32(std::uint32_t error);

/// The Darwin number for an errno of the host C runtime; 0 stays 0, EIO for one without a counterpart.
std::int32_t errno_from_crt(int error);

}  // namespace vlm
