// Names in the file system: directories and their streams, renaming, linking, removing, the current directory.
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>
#include <utility>

#include "posix/descriptors.h"
#include "posix/error_numbers.h"
#include "posix/host_path.h"
#include "posix/shims.h"
#include "support/rename.h"
#include "support/sysv.h"
#include "support/text.h"

namespace vlm {
namespace {

/// `struct dirent` of macOS with 64-bit inodes.
struct DarwinDirent {
  std::uint64_t inode;
  std::uint64_t seek_offset;
  std::uint16_t record_length;
  std::uint16_t name_length;  // bytes
  std::uint8_t type;
  char name[1024];
};
static_assert(sizeof(DarwinDirent) == 1048 && offsetof(DarwinDirent, name) == 21, "read by game code");

constexpr std::uint8_t type_directory = 4;
constexpr std::uint8_t type_regular = 8;
constexpr DWORD longest_current_directory = 520;  // UTF-16 units

/// What a DIR* points at. The host finds the first entry when the search starts, so it waits here for its turn.
struct DirectoryStream {
  UniqueHeap<wchar_t> pattern;
  HANDLE search = INVALID_HANDLE_VALUE;
  WIN32_FIND_DATAW found{};
  bool pending = false;
  bool at_end = false;
  std::uint64_t count = 0;
  DarwinDirent entry{};

  explicit DirectoryStream(UniqueHeap<wchar_t> new_pattern) : pattern(std::move(new_pattern)) {}
  DirectoryStream(const DirectoryStream&) = delete;
  ~DirectoryStream() { stop(); }

  bool start() {
    search = FindFirstFileW(pattern.get(), &found);
    pending = search != INVALID_HANDLE_VALUE;
    at_end = !pending;
    count = 0;
    return pending;
  }
  void stop() {
    if (search != INVALID_HANDLE_VALUE) FindClose(search);
    search = INVALID_HANDLE_VALUE;
  }
};

DirectoryStream* no_stream(std::int32_t darwin_error) {
  shim_errno = darwin_error;
  return nullptr;
}

/// An empty path is the current directory.
SYSV DirectoryStream* opendir_(const char* game_path) {
  const HostPath path(game_path != nullptr && *game_path == '\0' ? "." : game_path);
  if (!path) return nullptr;
  const std::size_t length = std::wcslen(path.c_str());
  UniqueHeap<wchar_t> pattern(static_cast<wchar_t*>(std::malloc((length + 3) * sizeof(wchar_t))));
  if (!pattern) return no_stream(DARWIN_ENOMEM);
  std::wmemcpy(pattern.get(), path.c_str(), length);
  std::wcscpy(pattern.get() + length, path.c_str()[length - 1] == L'\\' ? L"*" : L"\\*");
  auto* const stream = new (std::nothrow) DirectoryStream(std::move(pattern));
  if (stream == nullptr) return no_stream(DARWIN_ENOMEM);
  if (stream->start()) return stream;
  DWORD error = GetLastError();
  delete stream;
  // Hosts differ in what a search below a file or below nothing fails with, but not in what is there.
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES)
    error = GetLastError();
  else if (!(attributes & FILE_ATTRIBUTE_DIRECTORY))
    error = ERROR_DIRECTORY;
  return no_stream(errno_from_win32(error));
}

/// Null at the end, with shim_errno as it was.
SYSV DarwinDirent* readdir_(DirectoryStream* stream) {
  if (!stream->pending) {
    if (stream->at_end) return nullptr;
    if (!FindNextFileW(stream->search, &stream->found)) {
      stream->at_end = true;
      return nullptr;
    }
  }
  stream->pending = false;
  DarwinDirent& entry = stream->entry;
  static_assert(sizeof entry.name > 3 * MAX_PATH, "holds every name of the host");
  entry.name_length =
      static_cast<std::uint16_t>(from_host_path(stream->found.cFileName, entry.name, sizeof entry.name));
  entry.inode = entry.seek_offset = ++stream->count;
  entry.record_length = sizeof entry;
  entry.type = stream->found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY ? type_directory : type_regular;
  return &entry;
}

SYSV void rewinddir_(DirectoryStream* stream) {
  stream->stop();
  stream->start();
}

SYSV std::int32_t closedir_(DirectoryStream* stream) {
  if (stream == nullptr) return fail(DARWIN_EBADF);
  delete stream;
  return 0;
}

SYSV std::int32_t mkdir_(const char* game_path, std::uint16_t) {
  const HostPath path(game_path);
  if (!path) return -1;
  return CreateDirectoryW(path.c_str(), nullptr) ? 0 : fail_from_win32();
}

SYSV std::int32_t rmdir_(const char* game_path) {
  const HostPath path(game_path);
  if (!path) return -1;
  return RemoveDirectoryW(path.c_str()) ? 0 : fail_from_win32();
}

SYSV std::int32_t unlink_(const char* game_path) {
  const HostPath path(game_path);
  if (!path) return -1;
  return DeleteFileW(path.c_str()) ? 0 : fail_from_win32();
}

/// In one step also over a file that somebody has open, where the host can.
SYSV std::int32_t rename_(const char* old_path, const char* new_path) {
  const HostPath from(old_path);
  if (!from) return -1;
  const HostPath to(new_path);
  if (!to) return -1;
  // Not every host refuses to replace a file by a directory.
  const DWORD old_attributes = GetFileAttributesW(from.c_str());
  const DWORD new_attributes = GetFileAttributesW(to.c_str());
  if (old_attributes != INVALID_FILE_ATTRIBUTES && new_attributes != INVALID_FILE_ATTRIBUTES &&
      (old_attributes & FILE_ATTRIBUTE_DIRECTORY) && !(new_attributes & FILE_ATTRIBUTE_DIRECTORY)) {
    return fail(DARWIN_ENOTDIR);
  }
  if (rename_as_posix(from.c_str(), to.c_str())) return 0;
  const DWORD how = MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED;
  return MoveFileExW(from.c_str(), to.c_str(), how) ? 0 : fail_from_win32();
}

SYSV std::int32_t link_(const char* existing_path, const char* new_path) {
  const HostPath existing(existing_path);
  if (!existing) return -1;
  const HostPath link(new_path);
  if (!link) return -1;
  return CreateHardLinkW(link.c_str(), existing.c_str(), nullptr) ? 0 : fail_from_win32();
}

// Symbolic links need rights that players do not have: none is made, so none is there to read.
SYSV std::int32_t symlink_(const char*, const char*) { return fail(DARWIN_EPERM); }
SYSV std::int64_t readlink_(const char*, char*, std::uint64_t) { return fail(DARWIN_EINVAL); }

SYSV char* getcwd_(char* buffer, std::uint64_t size) {
  wchar_t host[longest_current_directory + 1];
  const DWORD length = GetCurrentDirectoryW(longest_current_directory + 1, host);
  if (length == 0 || length > longest_current_directory) {
    shim_errno = length == 0 ? errno_from_win32(GetLastError()) : DARWIN_ERANGE;
    return nullptr;
  }
  auto path = from_host_path(host);
  if (!path) {
    shim_errno = DARWIN_ENOMEM;
    return nullptr;
  }
  if (buffer == nullptr) return path.release();
  const std::size_t needed = std::strlen(path.get()) + 1;
  if (size < needed) {
    shim_errno = DARWIN_ERANGE;
    return nullptr;
  }
  std::memcpy(buffer, path.get(), needed);
  return buffer;
}

}  // namespace

const ShimEntry directory_rows[] = {
    {"_opendir$INODE64", shim(opendir_)},
    {"_readdir$INODE64", shim(readdir_)},
    {"_rewinddir$INODE64", shim(rewinddir_)},
    {"_closedir", shim(closedir_)},
    {"_mkdir", shim(mkdir_)},
    {"_rmdir", shim(rmdir_)},
    {"_unlink", shim(unlink_)},
    {"_rename", shim(rename_)},
    {"_link", shim(link_)},
    {"_symlink", shim(symlink_)},
    {"_readlink", shim(readlink_)},
    {"_getcwd", shim(getcwd_)},
};
constinit const ShimRows directory_shims = directory_rows;

}  // namespace vlm
