#include "support/text.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

namespace vlm {
namespace {

bool is_separator(char c) { return c == '/' || c == '\\'; }
bool is_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

/// Where the Windows absolute path inside a game path starts: the letter of the last "<separator>X:<separator>".
const char* windows_part(const char* path) {
  const std::size_t length = std::strlen(path);
  for (std::size_t k = length; k-- > 1;) {
    // k + 2 may be the terminating NUL, which is no separator.
    if (k + 2 < length && is_separator(path[k - 1]) && is_letter(path[k]) && path[k + 1] == ':' &&
        is_separator(path[k + 2])) {
      return path + k;
    }
  }
  return path;
}

}  // namespace

UniqueHeap<wchar_t> utf16_from_utf8(const char* text) {
  const int length = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
  UniqueHeap<wchar_t> wide(static_cast<wchar_t*>(std::calloc(static_cast<std::size_t>(length) + 1, sizeof(wchar_t))));
  if (wide) MultiByteToWideChar(CP_UTF8, 0, text, -1, wide.get(), length);
  return wide;
}

UniqueHeap<char> utf8_from_utf16(const wchar_t* text) {
  const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  UniqueHeap<char> narrow(static_cast<char*>(std::calloc(static_cast<std::size_t>(length) + 1, 1)));
  if (narrow) WideCharToMultiByte(CP_UTF8, 0, text, -1, narrow.get(), length, nullptr, nullptr);
  return narrow;
}

std::size_t to_host_path(const char* game_path, wchar_t* buffer, std::size_t capacity) {
  const char* const text = windows_part(game_path);
  const int size = MultiByteToWideChar(CP_UTF8, 0, text, -1, buffer, static_cast<int>(capacity));
  if (size == 0) return capacity;
  std::replace(buffer, buffer + size, L'/', L'\\');
  return static_cast<std::size_t>(size) - 1;
}

UniqueHeap<wchar_t> to_host_path(const char* game_path) {
  const std::size_t capacity = std::strlen(game_path) + 1;  // no byte becomes more than one unit
  UniqueHeap<wchar_t> path(static_cast<wchar_t*>(std::calloc(capacity, sizeof(wchar_t))));
  if (path) to_host_path(game_path, path.get(), capacity);
  return path;
}

std::size_t from_host_path(const wchar_t* host_path, char* buffer, std::size_t capacity) {
  // Most names are ASCII, which the host's conversion is slow for.
  std::size_t length = 0;
  for (; length < capacity && host_path[length] < 0x80; ++length) {
    const auto c = static_cast<char>(host_path[length]);
    buffer[length] = c == '\\' ? '/' : c;
    if (c == '\0') return length;
  }
  if (length == capacity) return capacity;
  const int size = WideCharToMultiByte(CP_UTF8, 0, host_path + length, -1, buffer + length,
                                       static_cast<int>(capacity - length), nullptr, nullptr);
  if (size == 0) return capacity;
  std::replace(buffer + length, buffer + length + size, '\\', '/');
  return length + static_cast<std::size_t>(size) - 1;
}

UniqueHeap<char> from_host_path(const wchar_t* host_path) {
  const std::size_t capacity = 3 * std::wcslen(host_path) + 1;  // bytes of the longest unit
  UniqueHeap<char> path(static_cast<char*>(std::calloc(capacity, 1)));
  if (path) from_host_path(host_path, path.get(), capacity);
  return path;
}

std::wstring own_module_path() {
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<const wchar_t*>(&own_module_path), &module)) {
    return {};
  }
  // 260 characters hold nearly every path; a longer one is cut by the call, which then fills the buffer.
  std::wstring path(260, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return {};
    if (length < path.size()) {
      path.resize(length);
      return path;
    }
    if (path.size() >= 32768) return {};
    path.resize(path.size() * 2);
  }
}

std::wstring own_module_directory() {
  std::wstring path = own_module_path();
  const std::size_t backslash = path.find_last_of(L'\\');
  if (backslash != std::wstring::npos) path.resize(backslash + 1);
  return path;
}

EnvironmentValue read_environment(const wchar_t* name) {
  SetLastError(ERROR_SUCCESS);
  const DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
  if (size == 0) return {GetLastError() == ERROR_SUCCESS, {}};
  std::wstring wide(size, L'\0');
  wide.resize(GetEnvironmentVariableW(name, wide.data(), size));
  const auto narrow = utf8_from_utf16(wide.c_str());
  return {true, narrow ? narrow.get() : ""};
}

}  // namespace vlm
