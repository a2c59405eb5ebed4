#include "support/text.h"

#include <cstring>

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
  UniqueHeap<wchar_t> wide(static_cast<wchar_t*>(std::calloc(length + 1, sizeof(wchar_t))));
  if (wide) MultiByteToWideChar(CP_UTF8, 0, text, -1, wide.get(), length);
  return wide;
}

UniqueHeap<char> utf8_from_utf16(const wchar_t* text) {
  const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  UniqueHeap<char> narrow(static_cast<char*>(std::calloc(length + 1, 1)));
  if (narrow) WideCharToMultiByte(CP_UTF8, 0, text, -1, narrow.get(), length, nullptr, nullptr);
  return narrow;
}

UniqueHeap<wchar_t> to_host_path(const char* game_path) {
  auto wide = utf16_from_utf8(windows_part(game_path));
  for (wchar_t* c = wide.get(); c && *c; ++c) {
    if (*c == L'/') *c = L'\\';
  }
  return wide;
}

UniqueHeap<char> from_host_path(const wchar_t* host_path) {
  auto narrow = utf8_from_utf16(host_path);
  for (char* c = narrow.get(); c && *c; ++c) {
    if (*c == '\\') *c = '/';
  }
  return narrow;
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
