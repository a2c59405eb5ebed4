#include "plugins/modules.h"

#include "binding/shim_table.h"
#include "plugins/mac_core.h"
#include "posix/dynamic_loading.h"

namespace vlm {
namespace {

// The functions of the first are not built yet: dlsym says so.
constexpr double controller_version = 1.0;
constexpr PluginSymbol controller_symbols[] = {
    {"GameControllerWrapperVersionNumber", shim(&controller_version)},
    {},
};

constexpr PluginModule modules[] = {
    {"GameControllerWrapper", controller_symbols, 0},
    {"QKMacCore", mac_core_symbols, 1},
    {"FPBundleWrapper", nullptr, 1},
    {"macOSControllerPlugin", nullptr, 1},
};

}  // namespace

void register_plugin_modules() {
  for (const PluginModule& module : modules) register_plugin_module(module);
}

}  // namespace vlm
