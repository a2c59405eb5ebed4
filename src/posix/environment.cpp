// The environment as game code sees it: HOME and TMPDIR are the player's folders in macOS spelling, every other name is
// the host's variable. Texts are UTF-8, names are matched without case, as Windows has them.
//
// Who owns what: game code keeps what _getenv returns and never releases it, so each text handed out lives until the
// process ends, also when the variable is set anew. A text is kept once per name and value.
#include <windows.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <mutex>
#include <string>

#include "posix/error_numbers.h"
#include "posix/shims.h"
#include "support/executable_path.h"
#include "support/locks.h"
#include "support/sysv.h"
#include "support/text.h"

namespace vlm {
namespace {

constexpr std::size_t folder_size = 512;

/// A folder in macOS spelling, found on the first request and the same from then on.
class Folder {
 public:
  /// `find` returns its UTF-8 text in the host's spelling; cut at 511 bytes.
  template <class Find>
  char* get(Find find) {
    const std::lock_guard guard(lock_);
    if (text_[0] == '\0') {
      const std::string found = find();
      const std::size_t length = found.copy(text_, folder_size - 1);
      for (std::size_t i = 0; i < length; ++i) {
        if (text_[i] == '\\') text_[i] = '/';
      }
    }
    return text_;
  }

 private:
  SrwLock lock_;  // a leaf
  char text_[folder_size] = "";
};

constinit Folder home;
constinit Folder temporary;

std::string find_home() {
  const EnvironmentValue profile = read_environment(L"USERPROFILE");
  return profile.exists ? profile.text : "C:/";
}

/// With its separator at the end.
std::string find_temporary() {
  wchar_t path[MAX_PATH + 1];
  const DWORD length = GetTempPathW(MAX_PATH + 1, path);
  if (length == 0 || length > MAX_PATH) return "";
  const auto text = utf8_from_utf16(path);
  return text ? text.get() : "";
}

/// A value handed out, with its name; one block, never released.
struct KeptValue {
  KeptValue* next;
  char* value;
  char text[];  // the name, the value, each with its NUL
};

constinit SrwLock kept_lock;  // a leaf; guards the list
constinit KeptValue* kept_values = nullptr;

/// A text of this value that lives as long as the process; null when memory is out.
char* keep(const char* name, const std::string& value) {
  const std::lock_guard guard(kept_lock);
  for (KeptValue* kept = kept_values; kept != nullptr; kept = kept->next) {
    // The value is compared, too: game code may have written into an earlier text.
    if (std::strcmp(kept->text, name) == 0 && value == kept->value) return kept->value;
  }
  const std::size_t name_size = std::strlen(name) + 1;
  auto* const kept = static_cast<KeptValue*>(std::malloc(sizeof(KeptValue) + name_size + value.size() + 1));
  if (kept == nullptr) return nullptr;
  kept->next = kept_values;
  kept->value = kept->text + name_size;
  std::memcpy(kept->text, name, name_size);
  std::memcpy(kept->value, value.c_str(), value.size() + 1);
  kept_values = kept;
  return kept->value;
}

/// The name for the host; null, and EINVAL, for one that no variable can have.
UniqueHeap<wchar_t> host_name(const char* name) {
  if (name == nullptr || *name == '\0' || std::strchr(name, '=') != nullptr) {
    shim_errno = DARWIN_EINVAL;
    return nullptr;
  }
  auto host = utf16_from_utf8(name);
  if (!host) shim_errno = DARWIN_ENOMEM;
  return host;
}

/// Sets a variable, or removes it (null), for the system and for the host C runtime, which have one list each.
std::int32_t set_variable(const wchar_t* name, const wchar_t* value) {
  constexpr std::size_t longest = 32766;  // of a name or a value; the runtime may end the process over a longer one
  if (std::wcslen(name) > longest || (value != nullptr && std::wcslen(value) > longest)) return fail(DARWIN_ENOMEM);
  // The runtime takes an empty value for a removal.
  if (const int error = _wputenv_s(name, value == nullptr ? L"" : value); error != 0)
    return fail(errno_from_crt(error));
  if (value == nullptr || *value == L'\0') SetEnvironmentVariableW(name, value);
  // macOS looks at the zone at each conversion, the runtime only when told to.
  if (_wcsicmp(name, L"TZ") == 0) _tzset();
  return 0;
}

SYSV char* getenv_(const char* name) {
  if (std::strcmp(name, "HOME") == 0) return home.get(find_home);
  if (std::strcmp(name, "TMPDIR") == 0) return temporary.get(find_temporary);
  if (*name == '\0' || std::strchr(name, '=') != nullptr) return nullptr;
  const auto host = utf16_from_utf8(name);
  if (!host) return nullptr;
  const EnvironmentValue value = read_environment(host.get());
  return value.exists ? keep(name, value.text) : nullptr;
}

SYSV std::int32_t setenv_(const char* name, const char* value, std::int32_t overwrite) {
  const auto host = host_name(name);
  if (!host) return -1;
  if (overwrite == 0 && read_environment(host.get()).exists) return 0;
  const auto host_value = utf16_from_utf8(value);
  if (!host_value) return fail(DARWIN_ENOMEM);
  return set_variable(host.get(), host_value.get());
}

SYSV std::int32_t unsetenv_(const char* name) {
  const auto host = host_name(name);
  return host ? set_variable(host.get(), nullptr) : -1;
}

/// Stores the size that is needed and returns -1 when there is less room.
SYSV std::int32_t NSGetExecutablePath_(char* buffer, std::uint32_t* size) {
  const auto needed = static_cast<std::uint32_t>(std::strlen(emulated_executable_path) + 1);
  if (needed > *size) {
    *size = needed;
    return -1;
  }
  std::memcpy(buffer, emulated_executable_path, needed);
  return 0;
}

}  // namespace

const ShimEntry environment_rows[] = {
    {"_getenv", shim(getenv_)},
    {"_setenv", shim(setenv_)},
    {"_unsetenv", shim(unsetenv_)},
    {"__NSGetExecutablePath", shim(NSGetExecutablePath_)},
};
constinit const ShimRows environment_shims = environment_rows;

}  // namespace vlm
