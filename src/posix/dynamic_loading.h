// The native plug-ins that game code opens by name. Their bundles are macOS code that is not there; the library has
// functions of its own for them.
#pragma once

#include <cstdint>

namespace vlm {

struct PluginSymbol {
  const char* name;     // without underscore; null ends a list
  const void* address;  // a System V function or an object
};

/// One plug-in; its address is the handle that _dlopen returns.
struct PluginModule {
  const char* name;             // found anywhere in the path that game code opens
  const PluginSymbol* symbols;  // null when it has none
  std::uint32_t fallback;       // not 0: a symbol that it lacks is a function that returns 0
};

/// Appends a plug-in, which lives until the process ends; fatal beyond 32. Only during static start-up.
void register_plugin_module(const PluginModule& module);

}  // namespace vlm
