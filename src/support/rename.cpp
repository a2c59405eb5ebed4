#include "support/rename.h"

#include <windows.h>

#include <cstddef>
#include <cwchar>

#include "support/handles.h"

namespace vlm {
namespace {

/// FILE_RENAME_INFO of Windows 10, <winbase.h>; the name follows.
struct RenameInfo {
  DWORD flags;
  HANDLE directory;
  DWORD name_bytes;
  wchar_t name[1];
};
constexpr DWORD replace_if_exists = 1, posix_semantics = 2;
constexpr auto rename_information = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);  // FileRenameInfoEx

}  // namespace

bool rename_as_posix(const wchar_t* from, const wchar_t* to, bool write_through) {
  // The name must be whole; a long one of the extended form stays as it is.
  const DWORD capacity = GetFullPathNameW(to, 0, nullptr, nullptr);
  if (capacity == 0) return false;
  const std::size_t size = offsetof(RenameInfo, name) + capacity * sizeof(wchar_t);
  const UniqueHeap<RenameInfo> info(static_cast<RenameInfo*>(std::calloc(1, size)));
  if (!info) return SetLastError(ERROR_NOT_ENOUGH_MEMORY), false;
  info->flags = replace_if_exists | posix_semantics;
  if (std::wcsncmp(to, LR"(\\?\)", 4) == 0) {
    std::wcscpy(info->name, to);
  } else if (GetFullPathNameW(to, capacity, info->name, nullptr) >= capacity) {
    return false;
  }
  info->name_bytes = static_cast<DWORD>(std::wcslen(info->name) * sizeof(wchar_t));

  const UniqueHandle file = own_handle(CreateFileW(
      from, DELETE | SYNCHRONIZE | (write_through ? GENERIC_WRITE : 0),
      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT | (write_through ? FILE_FLAG_WRITE_THROUGH : 0),
      nullptr));
  if (!file) return false;
  if (!SetFileInformationByHandle(file.get(), rename_information, info.get(), static_cast<DWORD>(size))) return false;
  if (write_through) FlushFileBuffers(file.get());
  return true;
}

}  // namespace vlm
