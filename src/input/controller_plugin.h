// GameControllerWrapper, the native plug-in through which managed code reads controllers.
#pragma once

#include "posix/dynamic_loading.h"

namespace vlm {

extern const PluginSymbol controller_plugin_symbols[];  // the last one ends the list

}  // namespace vlm
