// The host's plain paths end at 260 characters, with the current directory for a relative one. A longer one is made
// absolute and marked, which also turns the host's own reading of '.' and '..' off, so that is done before.
#include "posix/host_path.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>

#include "support/darwin_errno.h"
#include "support/text.h"

namespace vlm {
namespace {

constexpr std::size_t longest_name = 255;
constexpr std::size_t plain_limit = MAX_PATH - 14;  // a directory leaves room for an 8.3 name, a search for its pattern

constexpr wchar_t mark[] = LR"(\\?\)";
constexpr wchar_t share_mark[] = LR"(\\?\UNC\)";
constexpr std::size_t mark_length = std::size(mark) - 1;
constexpr std::size_t share_mark_length = std::size(share_mark) - 1;

bool is_marked(const wchar_t* path) { return std::wcsncmp(path, mark, mark_length) == 0; }

/// Whether the plain calls take a path of this length, below their limit itself, together with what they put in front.
bool fits_plain_calls(const wchar_t* path, std::size_t length) {
  const bool has_drive = length > 2 && path[1] == L':' && path[2] == L'\\';
  return has_drive || GetCurrentDirectoryW(0, nullptr) + length < plain_limit;
}

bool has_long_name(const wchar_t* path) {
  for (;;) {
    const std::size_t length = std::wcscspn(path, L"\\");
    if (length > longest_name) return true;
    if (path[length] == L'\0') return false;
    path += length + 1;
  }
}

}  // namespace

HostPath::HostPath(const char* game_path) {
  if (game_path == nullptr || *game_path == '\0') {
    shim_errno = game_path == nullptr ? DARWIN_EFAULT : DARWIN_ENOENT;
    return;
  }
  // No name can be too long in a path that is not.
  const std::size_t length = to_host_path(game_path, short_, plain_limit);
  if (length < plain_limit && fits_plain_calls(short_, length)) {
    text_ = short_;
  } else {
    use_long_form(game_path);
  }
}

void HostPath::use_long_form(const char* game_path) {
  // One block for both: room for the mark, the absolute path, the path as the game gave it. No byte of the game's path
  // becomes more than one unit; the current directory is never longer than a plain path.
  const std::size_t given_capacity = std::strlen(game_path) + 1;
  const std::size_t full_capacity = given_capacity + MAX_PATH;
  const std::size_t capacity = share_mark_length + full_capacity + given_capacity;
  long_.reset(static_cast<wchar_t*>(std::malloc(capacity * sizeof(wchar_t))));
  if (!long_) {
    shim_errno = DARWIN_ENOMEM;
    return;
  }
  wchar_t* const full = long_.get() + share_mark_length;
  wchar_t* const given = full + full_capacity;
  to_host_path(game_path, given, given_capacity);
  if (has_long_name(given)) {
    shim_errno = DARWIN_ENAMETOOLONG;
    return;
  }
  if (is_marked(given)) {
    text_ = given;
    return;
  }
  const DWORD length = GetFullPathNameW(given, static_cast<DWORD>(full_capacity), full, nullptr);
  if (length == 0 || length >= full_capacity) {
    shim_errno = length == 0 ? DARWIN_ENOENT : DARWIN_ENAMETOOLONG;
    return;
  }
  // "\\server\share" becomes "\\?\UNC\server\share": its own two backslashes are the end of the mark.
  const bool is_share = full[0] == L'\\' && full[1] == L'\\';
  wchar_t* const start = is_share ? full + 2 - share_mark_length : full - mark_length;
  std::wmemcpy(start, is_share ? share_mark : mark, is_share ? share_mark_length : mark_length);
  text_ = start;
}

}  // namespace vlm
