#include "posix/error_numbers.h"

#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {

namespace {

template <class Host>
struct ErrorRow {
  Host host;
  std::int32_t darwin;
};

constexpr ErrorRow<std::uint32_t> win32_rows[] = {
    {ERROR_FILE_NOT_FOUND, DARWIN_ENOENT},
    {ERROR_PATH_NOT_FOUND, DARWIN_ENOENT},
    {ERROR_INVALID_DRIVE, DARWIN_ENOENT},
    {ERROR_BAD_NETPATH, DARWIN_ENOENT},
    {ERROR_INVALID_NAME, DARWIN_ENOENT},  // no file can have it: who asks whether one is there is told that none is
    {ERROR_ACCESS_DENIED, DARWIN_EACCES},
    {ERROR_SHARING_VIOLATION, DARWIN_EACCES},
    {ERROR_LOCK_VIOLATION, DARWIN_EACCES},
    {ERROR_INVALID_HANDLE, DARWIN_EBADF},
    {ERROR_NOT_ENOUGH_MEMORY, DARWIN_ENOMEM},
    {ERROR_OUTOFMEMORY, DARWIN_ENOMEM},
    {ERROR_NOT_SAME_DEVICE, DARWIN_EXDEV},
    {ERROR_FILE_EXISTS, DARWIN_EEXIST},
    {ERROR_ALREADY_EXISTS, DARWIN_EEXIST},
    {ERROR_BROKEN_PIPE, DARWIN_EPIPE},
    {ERROR_DISK_FULL, DARWIN_ENOSPC},
    {ERROR_DIR_NOT_EMPTY, DARWIN_ENOTEMPTY},
    {ERROR_FILENAME_EXCED_RANGE, DARWIN_ENAMETOOLONG},
    {ERROR_DIRECTORY, DARWIN_ENOTDIR},
};

constexpr ErrorRow<int> crt_rows[] = {
    {0, 0},
    {EPERM, DARWIN_EPERM},
    {ENOENT, DARWIN_ENOENT},
    {EINTR, DARWIN_EINTR},
    {EBADF, DARWIN_EBADF},
    {ENOMEM, DARWIN_ENOMEM},
    {EACCES, DARWIN_EACCES},
    {EEXIST, DARWIN_EEXIST},
    {EXDEV, DARWIN_EXDEV},
    {ENOTDIR, DARWIN_ENOTDIR},
    {EISDIR, DARWIN_EISDIR},
    {EINVAL, DARWIN_EINVAL},
    {EMFILE, DARWIN_EMFILE},
    {ENOSPC, DARWIN_ENOSPC},
    {ESPIPE, DARWIN_ESPIPE},
    {EPIPE, DARWIN_EPIPE},
    {ERANGE, DARWIN_ERANGE},
    {EAGAIN, DARWIN_EAGAIN},
    {ENAMETOOLONG, DARWIN_ENAMETOOLONG},
    {ENOSYS, DARWIN_ENOSYS},
    {ENOTEMPTY, DARWIN_ENOTEMPTY},
};

template <class Host, std::size_t N>
std::int32_t translate(const ErrorRow<Host> (&rows)[N], Host error) {
  const auto* row = std::ranges::find(rows, error, &ErrorRow<Host>::host);
  return row == std::end(rows) ? DARWIN_EIO : row->darwin;
}

/// macOS's wording.
constexpr struct {
  std::int32_t error;
  const char* text;
} messages[] = {
    {0, "Undefined error: 0"},
    {DARWIN_EPERM, "Operation not permitted"},
    {DARWIN_ENOENT, "No such file or directory"},
    {DARWIN_EINTR, "Interrupted system call"},
    {DARWIN_EIO, "Input/output error"},
    {DARWIN_EBADF, "Bad file descriptor"},
    {DARWIN_ENOMEM, "Cannot allocate memory"},
    {DARWIN_EACCES, "Permission denied"},
    {DARWIN_EEXIST, "File exists"},
    {DARWIN_ENOTDIR, "Not a directory"},
    {DARWIN_EISDIR, "Is a directory"},
    {DARWIN_EINVAL, "Invalid argument"},
    {DARWIN_ENOSPC, "No space left on device"},
    {DARWIN_EAGAIN, "Resource temporarily unavailable"},
    {DARWIN_ENOTEMPTY, "Directory not empty"},
    {DARWIN_ENOSYS, "Function not implemented"},
};

SYSV std::int32_t* error_() { return &shim_errno; }

/// Succeeds whatever the number and the room: a text that is cut short is still a text.
SYSV std::int32_t strerror_r_(std::int32_t error, char* buffer, std::uint64_t size) {
  if (size == 0) return 0;
  const auto* row = std::ranges::find(messages, error, [](const auto& message) { return message.error; });
  const char* text = row == std::end(messages) ? "Unknown error" : row->text;
  const std::size_t length = std::min<std::size_t>(std::strlen(text), size - 1);
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
  return 0;
}

}  // namespace

std::int32_t errno_from_win32(std::uint32_t error) { return translate(win32_rows, error); }
std::int32_t errno_from_crt(int error) { return translate(crt_rows, error); }

const ShimEntry error_rows[] = {
    {"___error", shim(error_)},
    {"_strerror_r", shim(strerror_r_)},
};
constinit const ShimRows error_shims = error_rows;

}  // namespace vlm
