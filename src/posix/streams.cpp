#include "posix/streams.h"

#include <cstdint>
#include <cstdio>

#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {
namespace {

// Game code reads these directly; written by static start-up, before any game code runs.
std::FILE* standard_input = nullptr;
std::FILE* standard_output = nullptr;
std::FILE* standard_error = nullptr;

SYSV std::uint64_t fwrite_(const void* from, std::uint64_t size, std::uint64_t count, std::FILE* stream) {
  return std::fwrite(from, size, count, stream);
}
SYSV std::int32_t fflush_(std::FILE* stream) { return std::fflush(stream); }

}  // namespace

const ShimEntry stream_shims[5] = {
    {"_fwrite", shim(fwrite_)},           {"_fflush", shim(fflush_)},           {"___stdinp", shim(&standard_input)},
    {"___stdoutp", shim(&standard_output)}, {"___stderrp", shim(&standard_error)},
};

void set_up_standard_streams() {
  standard_input = stdin;
  standard_output = stdout;
  standard_error = stderr;
}

}  // namespace vlm
