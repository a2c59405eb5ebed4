// The macOS error number of the calling thread. Every error number that game code sees is a Darwin value.
#pragma once

#include <cstdint>

namespace vlm {

/// Zero when a thread starts; separate from the host C runtime's errno. No shim clears it on success.
extern thread_local std::int32_t shim_errno;

}  // namespace vlm
