#include "support/windows_path.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string_view>
#include <utility>

#include "support/text.h"

namespace vlm {
namespace {

using std::wstring_view;

constexpr std::size_t longest_name = 255;
constexpr std::size_t plain_limit = MAX_PATH - 14;  // a directory leaves room for an 8.3 name, a search for its pattern

constexpr wstring_view mark = LR"(\\?\)";
constexpr wstring_view share_mark = LR"(\\?\UNC)";  // in place of the first backslash of "\\server\share"

bool is_letter(wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z'); }

bool begins_with_drive(wstring_view path) {
  return path.size() >= 2 && is_letter(path[0]) && path[1] == L':' && (path.size() == 2 || path[2] == L'\\');
}

/// The name at the front of a path, which is taken off with the separators before it; empty at the end.
wstring_view take_name(wstring_view& path) {
  path.remove_prefix(std::min(path.find_first_not_of(L'\\'), path.size()));
  const wstring_view name = path.substr(0, path.find(L'\\'));
  path.remove_prefix(name.size());
  return name;
}

bool is_device(wstring_view name) {
  name = name.substr(0, name.find(L'.'));
  name = name.substr(0, name.find_last_not_of(L' ') + 1);
  const auto is = [name](wstring_view device, std::size_t digits) {
    if (name.size() != device.size() + digits) return false;
    if (_wcsnicmp(name.data(), device.data(), device.size()) != 0) return false;
    return digits == 0 || wstring_view(L"0123456789\u00B9\u00B2\u00B3").find(name.back()) != wstring_view::npos;
  };
  return is(L"CON", 0) || is(L"PRN", 0) || is(L"AUX", 0) || is(L"NUL", 0) || is(L"COM", 1) || is(L"LPT", 1) ||
         is(L"CONIN$", 0) || is(L"CONOUT$", 0);
}

/// Whether Windows would take the name, in a plain path, for another one. Which of them it does depends on its version.
bool is_read_otherwise(wstring_view name) {
  if (name == L"." || name == L"..") return false;
  return name.back() == L'.' || name.back() == L' ' || is_device(name);
}

enum class Form { plain, extended, too_long, impossible };

Form form_of(wstring_view path) {
  if (begins_with_drive(path)) path.remove_prefix(2);
  Form form = Form::plain;
  for (wstring_view name; !(name = take_name(path)).empty();) {
    if (name.size() > longest_name) return Form::too_long;
    if (name.find(L':') != name.npos) return Form::impossible;
    if (is_read_otherwise(name)) form = Form::extended;
  }
  return form;
}

/// Whether the plain calls take a path of this length, together with what they put in front of it.
bool fits_plain_calls(wstring_view path) {
  if (path.size() >= plain_limit) return false;
  return begins_with_drive(path) || GetCurrentDirectoryW(0, nullptr) + path.size() < plain_limit;
}

/// Of an absolute path: the drive, or the server and its share. '..' does not lead out of it.
wstring_view root_of(wstring_view path) {
  if (!path.starts_with(LR"(\\)")) return path.substr(0, 2);
  wstring_view rest = path;
  take_name(rest);
  take_name(rest);
  return path.substr(0, path.size() - rest.size());
}

}  // namespace

WindowsPath::WindowsPath(const char* game_path) {
  if (game_path == nullptr || *game_path == '\0') {
    error_ = ERROR_PATH_NOT_FOUND;
    return;
  }
  UniqueHeap<wchar_t> long_given;
  const wchar_t* given = short_;
  std::size_t length = to_host_path(game_path, short_, plain_limit);
  if (length == plain_limit) {
    long_given = to_host_path(game_path);
    given = long_given.get();
    length = given != nullptr ? std::wcslen(given) : 0;
  }
  if (given == nullptr) {
    error_ = ERROR_NOT_ENOUGH_MEMORY;
    return;
  }
  const wstring_view path(given, length);
  if (path.starts_with(mark) || path.starts_with(LR"(\\.\)")) {
    extended_ = std::move(long_given);
    text_ = given;
    return;
  }
  const Form form = form_of(path);
  if (form == Form::too_long || form == Form::impossible) {
    error_ = form == Form::too_long ? ERROR_FILENAME_EXCED_RANGE : ERROR_INVALID_NAME;
  } else if (form == Form::plain && fits_plain_calls(path)) {
    text_ = given;
  } else {
    use_extended_form(given, length);
  }
}

void WindowsPath::use_extended_form(const wchar_t* given, std::size_t length) {
  wstring_view rest(given, length);
  const bool is_absolute = begins_with_drive(rest) || rest.starts_with(LR"(\\)");
  const std::size_t base_size = is_absolute ? 0 : GetCurrentDirectoryW(0, nullptr);
  const std::size_t capacity = share_mark.size() + base_size + length + 3;
  extended_.reset(static_cast<wchar_t*>(std::malloc(capacity * sizeof(wchar_t))));
  if (!extended_) {
    error_ = ERROR_NOT_ENOUGH_MEMORY;
    return;
  }
  wchar_t* const full = extended_.get() + share_mark.size();  // the absolute path, without the mark
  wstring_view base = root_of(rest);
  if (is_absolute) {
    std::wmemcpy(full, base.data(), base.size());
    rest.remove_prefix(base.size());
  } else {
    const DWORD base_length = GetCurrentDirectoryW(static_cast<DWORD>(base_size), full);
    if (base_length == 0 || base_length >= base_size) {
      error_ = ERROR_PATH_NOT_FOUND;
      return;
    }
    base = {full, base_length};
    if (base.ends_with(L'\\')) base.remove_suffix(1);
    if (rest.starts_with(L'\\')) base = root_of(base);
  }
  const wchar_t* const root_end = full + root_of({full, base.size()}).size();
  wchar_t* end = full + base.size();
  const bool is_folder = rest.ends_with(L'\\');
  for (wstring_view name; !(name = take_name(rest)).empty();) {
    if (name == L".") continue;
    if (name == L"..") {
      while (end != root_end) {
        --end;
        if (*end == L'\\') break;
      }
      continue;
    }
    *end++ = L'\\';
    end = std::wmemcpy(end, name.data(), name.size()) + name.size();
  }
  if (is_folder || end == root_end) *end++ = L'\\';
  *end = L'\0';
  const bool is_share = full[0] == L'\\';
  const wstring_view in_front = is_share ? share_mark : mark;
  wchar_t* const start = full + is_share - in_front.size();
  text_ = std::wmemcpy(start, in_front.data(), in_front.size());
}

}  // namespace vlm
