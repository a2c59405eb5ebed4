#include "support/save_directory.h"

#include <windows.h>

#include <cstdio>
#include <string>

#include "support/text.h"

namespace vlm {
namespace {

constinit INIT_ONCE save_directory_once = INIT_ONCE_STATIC_INIT;
constinit char save_directory_path[1024] = "";  // written once, inside save_directory_once

BOOL CALLBACK find_save_directory(PINIT_ONCE, PVOID, PVOID*) {
  const EnvironmentValue chosen = read_environment(L"VLM_SAVE_DIR");
  if (!chosen.text.empty()) {
    std::snprintf(save_directory_path, sizeof save_directory_path, "%s", chosen.text.c_str());
  } else {
    std::wstring beside_library = own_module_directory();
    if (!beside_library.ends_with(L'\\')) beside_library.clear();
    beside_library += L"PCSaveData";
    const auto path = from_host_path(beside_library.c_str());
    std::snprintf(save_directory_path, sizeof save_directory_path, "%s", path ? path.get() : "PCSaveData");
  }
  for (char* c = save_directory_path; *c; ++c) {
    if (*c == '\\') *c = '/';
  }
  if (const auto host = to_host_path(save_directory_path)) CreateDirectoryW(host.get(), nullptr);
  return TRUE;
}

}  // namespace

const char* save_directory() {
  InitOnceExecuteOnce(&save_directory_once, find_save_directory, nullptr, nullptr);
  return save_directory_path;
}

}  // namespace vlm
