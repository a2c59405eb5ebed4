// Copying, measuring and searching bytes, for families whose shims do little else: most of what game code copies is
// short and costs less than the way to the host's function. All have the convention of game code, which leaves every
// vector register free to use.
#pragma once

#include <cstdint>

#include "support/sysv.h"

namespace vlm {

/// Copies `size` bytes as if all were read before any is written. Returns `to`.
SYSV void* copy_bytes(void* to, const void* from, std::uint64_t size);

/// Less than, equal to or greater than 0, as the first bytes that differ are, taken as unsigned ones.
SYSV std::int32_t compare_bytes(const void* a, const void* b, std::uint64_t size);

/// The same for texts: as the first byte that differs is, the NUL at the end of either included.
SYSV std::int32_t compare_texts(const char* a, const char* b);

/// Bytes before the NUL.
SYSV std::uint64_t text_length(const char* text);

/// The first `value` in [from, end), or null.
SYSV const char* find_byte(const char* from, const char* end, char value);

}  // namespace vlm
