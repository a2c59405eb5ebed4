// Random bytes for game code.
#include <windows.h>

#include <bcrypt.h>

#include <algorithm>
#include <cstdint>

#include "diag/log.h"
#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {
namespace {

/// Cannot fail on macOS, and the game cannot go on with bytes that it believes to be random: fatal when the system
/// has none.
SYSV void arc4random_buf_(UCHAR* buffer, std::uint64_t size) {
  while (size > 0) {
    const auto part = static_cast<ULONG>(std::min<std::uint64_t>(size, 0x40000000));  // the system counts in 32 bits
    const NTSTATUS status = BCryptGenRandom(nullptr, buffer, part, BCRYPT_USE_SYSTEM_PREFERRED_RNG);
    if (status < 0) fatal_error("the system has no random bytes: BCryptGenRandom returned 0x%08lx", status);
    buffer += part;
    size -= part;
  }
}

}  // namespace

const ShimEntry random_rows[] = {{"_arc4random_buf", shim(arc4random_buf_)}};
constinit const ShimRows random_shims = random_rows;

}  // namespace vlm
