// The functions of the plug-in QKMacCore: the cloud store and the locale, for managed code.
#pragma once

#include "posix/dynamic_loading.h"

namespace vlm {

extern const PluginSymbol mac_core_symbols[];  // mac_core.cpp; the last one ends the list

}  // namespace vlm
