// The error number that game code sees, and failing with one. All are Darwin values: macOS and Windows share most of
// the small numbers, but not all of them, and a host number that slips through misleads the game (Darwin's 11 is
// EDEADLK, not EAGAIN).
#pragma once

#include <cstdint>

namespace vlm {

/// The calling thread's error number, the one behind ___error. Zero when a thread starts; separate from the host C
/// runtime's errno. No shim clears it on success.
inline constinit thread_local std::int32_t shim_errno = 0;

/// What most shims do that fail: sets shim_errno, returns -1.
inline std::int32_t fail(std::int32_t darwin_error) {
  shim_errno = darwin_error;
  return -1;
}

// <sys/errno.h> of macOS, as far as the shims use it.
inline constexpr std::int32_t DARWIN_EPERM = 1;
inline constexpr std::int32_t DARWIN_ENOENT = 2;
inline constexpr std::int32_t DARWIN_EINTR = 4;
inline constexpr std::int32_t DARWIN_EIO = 5;
inline constexpr std::int32_t DARWIN_EBADF = 9;
inline constexpr std::int32_t DARWIN_ENOMEM = 12;
inline constexpr std::int32_t DARWIN_EACCES = 13;
inline constexpr std::int32_t DARWIN_EFAULT = 14;
inline constexpr std::int32_t DARWIN_EEXIST = 17;
inline constexpr std::int32_t DARWIN_EXDEV = 18;
inline constexpr std::int32_t DARWIN_ENOTDIR = 20;
inline constexpr std::int32_t DARWIN_EISDIR = 21;
inline constexpr std::int32_t DARWIN_EINVAL = 22;
inline constexpr std::int32_t DARWIN_EMFILE = 24;
inline constexpr std::int32_t DARWIN_ENOTTY = 25;
inline constexpr std::int32_t DARWIN_ENOSPC = 28;
inline constexpr std::int32_t DARWIN_ESPIPE = 29;
inline constexpr std::int32_t DARWIN_EPIPE = 32;
inline constexpr std::int32_t DARWIN_ERANGE = 34;
inline constexpr std::int32_t DARWIN_EAGAIN = 35;
inline constexpr std::int32_t DARWIN_ENAMETOOLONG = 63;
inline constexpr std::int32_t DARWIN_ENOTEMPTY = 66;
inline constexpr std::int32_t DARWIN_ENOSYS = 78;
inline constexpr std::int32_t DARWIN_EOVERFLOW = 84;

}  // namespace vlm
