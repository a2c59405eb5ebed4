#include "host/paths.h"

#include <cstdio>

#include "support/text.h"

namespace vlm {

std::string resolve_start_paths() {
  const auto library_directory = from_host_path(own_module_directory().c_str());
  const char* directory = library_directory ? library_directory.get() : "";
  char image_path[1024];
  if (const EnvironmentValue chosen = read_environment(L"VLM_GAMEASSEMBLY"); chosen.exists) {
    std::snprintf(image_path, sizeof image_path, "%s", chosen.text.c_str());
  } else {
    std::snprintf(image_path, sizeof image_path, "%sGameAssembly.dylib", directory);
  }
  std::snprintf(emulated_executable_path, sizeof emulated_executable_path, "%sVelmora.app/Contents/MacOS/Velmora",
                directory);
  return image_path;
}

}  // namespace vlm
