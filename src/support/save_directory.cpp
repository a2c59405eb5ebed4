#include "support/save_directory.h"

#include <windows.h>

#include <algorithm>

#include "support/text.h"
#include "support/windows_path.h"

namespace vlm {
namespace {

constinit INIT_ONCE save_directory_once = INIT_ONCE_STATIC_INIT;
constinit const char* save_directory_path = "";  // written once, inside save_directory_once; lives from then on

/// Beside the library, UTF-8; empty when it is not known where that is.
std::string data_directory() {
  const std::wstring beside_library = own_module_directory();
  const auto path = from_host_path((beside_library + L"PCSaveData").c_str());
  return beside_library.ends_with(L'\\') && path ? path.get() : "";
}

/// What Windows calls the folder; empty when it is no possible name.
std::wstring make_directory(const std::string& path) {
  const WindowsPath host(path.c_str());
  if (!host) return {};
  CreateDirectoryW(host.c_str(), nullptr);
  return host.c_str();
}

BOOL CALLBACK find_save_directory(PINIT_ONCE, PVOID, PVOID*) {
  std::string path = read_environment(L"VLM_SAVE_DIR").text;
  if (path.empty()) path = data_directory();
  if (path.empty()) path = "PCSaveData";
  std::ranges::replace(path, '\\', '/');
  while (path.size() > 1 && path.ends_with('/') && !path.ends_with(":/")) path.pop_back();
  make_directory(path);
  if (const char* const kept = _strdup(path.c_str())) save_directory_path = kept;
  return TRUE;
}

}  // namespace

std::wstring make_data_directory() { return make_directory(data_directory()); }

const char* save_directory() {
  InitOnceExecuteOnce(&save_directory_once, find_save_directory, nullptr, nullptr);
  return save_directory_path;
}

}  // namespace vlm
