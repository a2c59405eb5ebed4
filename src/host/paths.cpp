#include "host/paths.h"

#include <windows.h>

#include <cstdio>
#include <cstring>

#include "support/text.h"

namespace vlm {
namespace {

constexpr std::size_t path_size = 1024;

constinit INIT_ONCE save_directory_once = INIT_ONCE_STATIC_INIT;
constinit char save_directory_path[path_size] = "";  // written once, inside save_directory_once

BOOL CALLBACK find_save_directory(PINIT_ONCE, PVOID, PVOID*) {
  const EnvironmentValue chosen = read_environment(L"VLM_SAVE_DIR");
  if (!chosen.text.empty()) {
    std::snprintf(save_directory_path, path_size, "%s", chosen.text.c_str());
  } else {
    std::wstring beside_library = own_module_directory();
    if (!beside_library.ends_with(L'\\')) beside_library.clear();
    beside_library += L"PCSaveData";
    const auto path = from_host_path(beside_library.c_str());
    std::snprintf(save_directory_path, path_size, "%s", path ? path.get() : "PCSaveData");
  }
  for (char* c = save_directory_path; *c; ++c) {
    if (*c == '\\') *c = '/';
  }
  if (const auto host = to_host_path(save_directory_path)) CreateDirectoryW(host.get(), nullptr);
  return TRUE;
}

}  // namespace

std::string resolve_start_paths() {
  const auto library_directory = from_host_path(own_module_directory().c_str());
  const char* directory = library_directory ? library_directory.get() : "";
  char image_path[path_size];
  if (const EnvironmentValue chosen = read_environment(L"VLM_GAMEASSEMBLY"); chosen.exists) {
    std::snprintf(image_path, sizeof image_path, "%s", chosen.text.c_str());
  } else {
    std::snprintf(image_path, sizeof image_path, "%sGameAssembly.dylib", directory);
  }
  std::snprintf(emulated_executable_path, sizeof emulated_executable_path,
                "%sVelmora.app/Contents/MacOS/Velmora", directory);
  return image_path;
}

const char* save_directory() {
  InitOnceExecuteOnce(&save_directory_once, find_save_directory, nullptr, nullptr);
  return save_directory_path;
}

}  // namespace vlm
