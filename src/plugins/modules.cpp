#include "plugins/modules.h"

#include "input/controller_plugin.h"
#include "plugins/mac_core.h"
#include "posix/dynamic_loading.h"

namespace vlm {
namespace {

constexpr PluginModule modules[] = {
    {"GameControllerWrapper", controller_plugin_symbols, 0},
    {"QKMacCore", mac_core_symbols, 1},
    {"FPBundleWrapper", nullptr, 1},
    {"macOSControllerPlugin", nullptr, 1},
};

}  // namespace

void register_plugin_modules() {
  for (const PluginModule& module : modules) register_plugin_module(module);
}

}  // namespace vlm
