#include "posix/streams.h"

#include <windows.h>
#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "posix/descriptors.h"
#include "posix/error_numbers.h"
#include "posix/host_path.h"
#include "posix/shims.h"
#include "support/handles.h"
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

/// How the host opens a file for a stream: as fopen's modes say.
struct StreamMode {
  DWORD access, disposition;
  int flags;  // of the C runtime's descriptor
  wchar_t text[4];
};

/// Of the further letters only '+' and 'x' mean the same to the host; its text mode ('t') must not be reached.
StreamMode stream_mode(const char* mode) {
  const std::size_t length = strnlen(mode, longest_mode);
  const auto has = [&](char letter) { return std::memchr(mode, letter, length) != nullptr; };
  const bool updates = has('+');
  StreamMode result{0, 0, _O_BINARY, {static_cast<wchar_t>(*mode), L'b', updates ? L'+' : L'\0', L'\0'}};
  result.access = updates ? GENERIC_READ | GENERIC_WRITE : *mode == 'r' ? GENERIC_READ : GENERIC_WRITE;
  result.disposition = *mode == 'r'   ? OPEN_EXISTING
                       : *mode == 'a' ? OPEN_ALWAYS
                       : has('x')     ? CREATE_NEW
                                      : CREATE_ALWAYS;
  if (*mode == 'r' && !updates) result.flags |= _O_RDONLY;
  if (*mode == 'a') result.flags |= _O_APPEND;
  return result;
}

/// A stream shares deletion, as descriptors do, which the host's own opening does not: a game replaces a file that it
/// reads.
SYSV std::FILE* fopen_(const char* game_path, const char* mode) {
  const HostPath path(game_path);
  if (!path) return nullptr;
  if (mode == nullptr || *mode == '\0' || std::strchr("rwa", *mode) == nullptr) {
    shim_errno = DARWIN_EINVAL;
    return nullptr;
  }
  const StreamMode how = stream_mode(mode);
  UniqueHandle handle =
      own_handle(CreateFileW(path.c_str(), how.access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             how.disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!handle) {
    fail_from_win32();
    return nullptr;
  }
  const int number = _open_osfhandle(reinterpret_cast<std::intptr_t>(handle.get()), how.flags);
  if (number < 0) return with_host_errno<std::FILE*>(nullptr, true);
  handle.release();  // the number's
  std::FILE* const stream = _wfdopen(number, how.text);
  with_host_errno(stream, stream == nullptr);
  if (stream == nullptr) _close(number);
  return stream;
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
