// The game's four native plug-ins.
#pragma once

namespace vlm {

/// Makes them known to dlopen. Part of static start-up.
void register_plugin_modules();

}  // namespace vlm
