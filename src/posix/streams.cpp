#include "posix/streams.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "posix/descriptors.h"
#include "posix/error_numbers.h"
#include "posix/host_path.h"
#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {
namespace {

// Game code reads these directly; written by static start-up, before any game code runs.
std::FILE* standard_input = nullptr;
std::FILE* standard_output = nullptr;
std::FILE* standard_error = nullptr;

constexpr std::size_t longest_mode = 14;

template <class Result>
Result with_host_errno(Result result, bool failed) {
  if (failed) shim_errno = errno_from_crt(errno);
  return result;
}

/// Mode "x", which not every host runtime knows: the file must not exist.
std::FILE* create_stream(const wchar_t* path, const wchar_t* mode, bool updates) {
  const int number =
      _wopen(path, _O_CREAT | _O_EXCL | _O_BINARY | (updates ? _O_RDWR : _O_WRONLY), _S_IREAD | _S_IWRITE);
  if (number < 0) return nullptr;
  std::FILE* const stream = _wfdopen(number, mode);
  if (stream == nullptr) _close(number);
  return stream;
}

SYSV std::FILE* fopen_(const char* game_path, const char* mode) {
  const HostPath path(game_path);
  if (!path) return nullptr;
  if (mode == nullptr || *mode == '\0' || std::strchr("rwa", *mode) == nullptr) {
    shim_errno = DARWIN_EINVAL;
    return nullptr;
  }
  // Of the further letters only '+' means the same to the host; its text mode ('t') must not be reached.
  const std::size_t mode_length = strnlen(mode, longest_mode);
  const bool updates = std::memchr(mode, '+', mode_length) != nullptr;
  const bool is_new = *mode == 'w' && std::memchr(mode, 'x', mode_length) != nullptr;
  const wchar_t host_mode[] = {static_cast<wchar_t>(*mode), L'b', updates ? L'+' : L'\0', L'\0'};
  std::FILE* const stream = is_new ? create_stream(path.c_str(), host_mode, updates) : _wfopen(path.c_str(), host_mode);
  return with_host_errno(stream, stream == nullptr);
}

SYSV std::int32_t fclose_(std::FILE* stream) {
  const int result = std::fclose(stream);
  return with_host_errno(result, result != 0);
}
SYSV std::int32_t fflush_(std::FILE* stream) {
  const int result = std::fflush(stream);
  return with_host_errno(result, result != 0);
}

/// The host ends the process for a size that does not fit.
bool size_fits(std::uint64_t size, std::uint64_t count) {
  std::uint64_t bytes;
  if (!__builtin_mul_overflow(size, count, &bytes)) return true;
  shim_errno = DARWIN_EINVAL;
  return false;
}

SYSV std::uint64_t fread_(void* to, std::uint64_t size, std::uint64_t count, std::FILE* stream) {
  if (!size_fits(size, count)) return 0;
  const std::uint64_t done = std::fread(to, size, count, stream);
  return with_host_errno(done, done < count && std::ferror(stream));
}
SYSV std::uint64_t fwrite_(const void* from, std::uint64_t size, std::uint64_t count, std::FILE* stream) {
  if (!size_fits(size, count)) return 0;
  const std::uint64_t done = std::fwrite(from, size, count, stream);
  return with_host_errno(done, done < count && std::ferror(stream));
}

SYSV std::int32_t fseek_(std::FILE* stream, std::int64_t offset, std::int32_t whence) {
  static_assert(SEEK_SET == 0 && SEEK_CUR == 1 && SEEK_END == 2, "the same on macOS");
  if (whence < SEEK_SET || whence > SEEK_END) return fail(DARWIN_EINVAL);
  const int result = _fseeki64(stream, offset, whence);
  return with_host_errno(result, result != 0);
}
SYSV std::int64_t ftell_(std::FILE* stream) {
  const std::int64_t position = _ftelli64(stream);
  return with_host_errno(position, position < 0);
}
SYSV void rewind_(std::FILE* stream) { std::rewind(stream); }

}  // namespace

const ShimEntry stream_rows[] = {
    {"_fopen", shim(fopen_)},
    {"_fclose", shim(fclose_)},
    {"_fflush", shim(fflush_)},
    {"_fread", shim(fread_)},
    {"_fwrite", shim(fwrite_)},
    {"_fseek", shim(fseek_)},
    {"_fseeko", shim(fseek_)},
    {"_ftell", shim(ftell_)},
    {"_ftello", shim(ftell_)},
    {"_rewind", shim(rewind_)},
    {"___stdinp", shim(&standard_input)},
    {"___stdoutp", shim(&standard_output)},
    {"___stderrp", shim(&standard_error)},
};
constinit const ShimRows stream_shims = stream_rows;

void set_up_standard_streams() {
  standard_input = stdin;
  standard_output = stdout;
  standard_error = stderr;
  for (std::FILE* const stream : {stdin, stdout, stderr}) {
    const int number = _fileno(stream);
    if (number >= 0) _setmode(number, _O_BINARY);  // macOS knows no text mode; a player without a console has no number
  }
}

}  // namespace vlm
