// What others need to know of mapped memory.
#pragma once

#include "support/locks.h"

namespace vlm {

/// Guards the list of mappings; held across every call that changes one. Nobody is stopped while he holds it.
extern StandstillLock mapping_lock;

}  // namespace vlm
