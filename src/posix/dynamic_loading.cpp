// dlopen and its family. A name is looked for in a plug-in (whose handle is its descriptor), or, with any other handle,
// in the loaded images and then in the shim table.
#include "posix/dynamic_loading.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>

#include "diag/log.h"
#include "macho/image.h"
#include "macho/queries.h"
#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {
namespace {

constexpr std::size_t max_plugin_modules = 32;

// Filled by static start-up, then read-only.
const PluginModule* plugin_modules[max_plugin_modules];
std::size_t plugin_module_count = 0;

std::span<const PluginModule* const> modules() { return {plugin_modules, plugin_module_count}; }

/// The handle of the program itself.
constexpr std::uint64_t program_handle = 1;

thread_local const char* pending_error = nullptr;  // a constant; what _dlerror tells next

SYSV std::uint64_t return_zero() { return 0; }

const void* not_found() {
  pending_error = "symbol not found";
  return nullptr;
}

const void* find_in_module(const PluginModule& module, const char* name) {
  for (const PluginSymbol* symbol = module.symbols; symbol != nullptr && symbol->name != nullptr; ++symbol) {
    if (std::strcmp(symbol->name, name) == 0) return symbol->address;
  }
  return module.fallback != 0 ? shim(return_zero) : not_found();
}

const void* find_in_program(const char* name) {
  char underscored[512];
  const int length = std::snprintf(underscored, sizeof underscored, "_%s", name);
  // A cut name could be that of another symbol.
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof underscored) return not_found();
  for (const MachImage* image : macho_images()) {
    if (const std::uint64_t address = macho_find_export(*image, underscored)) {
      return reinterpret_cast<const void*>(address);
    }
  }
  const void* const found = lookup_shim("dlsym", underscored);
  return found != nullptr ? found : not_found();
}

/// The mode is left alone and nothing is counted: what can be opened is there for good.
SYSV const void* dlopen_(const char* path, std::int32_t mode) {
  if (path == nullptr) return reinterpret_cast<const void*>(program_handle);
  const auto found =
      std::ranges::find_if(modules(), [&](const PluginModule* m) { return std::strstr(path, m->name) != nullptr; });
  if (found != modules().end()) return *found;
  pending_error = "image not found";
  return nullptr;
}

SYSV const void* dlsym_(const void* handle, const char* name) {
  const auto module = std::ranges::find(modules(), handle);
  return module != modules().end() ? find_in_module(**module, name) : find_in_program(name);
}

SYSV std::int32_t dlclose_(const void* handle) { return 0; }

SYSV const char* dlerror_() {
  const char* const message = pending_error;
  pending_error = nullptr;
  return message;
}

}  // namespace

const ShimEntry dynamic_loading_rows[] = {
    {"_dlopen", shim(dlopen_)},
    {"_dlsym", shim(dlsym_)},
    {"_dlclose", shim(dlclose_)},
    {"_dlerror", shim(dlerror_)},
};
constinit const ShimRows dynamic_loading_shims = dynamic_loading_rows;

void register_plugin_module(const PluginModule& module) {
  if (plugin_module_count == max_plugin_modules) fatal_error("plug-in module table full");
  plugin_modules[plugin_module_count++] = &module;
}

}  // namespace vlm
