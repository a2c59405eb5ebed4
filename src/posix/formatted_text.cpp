// printf and scanf for game code. The variadic ones arrive through their entries, which hand over an argument list.
#include <cerrno>
#include <cstdio>

#include "abi/entries.h"
#include "abi/format.h"
#include "abi/scan.h"
#include "posix/error_numbers.h"
#include "posix/shims.h"

namespace vlm {
namespace {

/// What printf returns for a text of `length` bytes: POSIX has -1 and EOVERFLOW where an int cannot hold it.
std::int32_t printf_result(std::uint64_t length) {
  return length <= INT32_MAX ? static_cast<std::int32_t>(length) : fail(DARWIN_EOVERFLOW);
}

/// A stream as fprintf writes to it: what it formats is one stretch there, however long.
class LockedStream {
 public:
  explicit LockedStream(std::FILE* stream) : stream_(stream) { _lock_file(stream); }
  ~LockedStream() { _unlock_file(stream_); }
  LockedStream(const LockedStream&) = delete;
  LockedStream& operator=(const LockedStream&) = delete;

  void write(const char* text, std::uint64_t size) {
    if (std::fwrite(text, 1, size, stream_) != size) shim_errno = errno_from_crt(errno);
  }

 private:
  std::FILE* stream_;
};

}  // namespace

extern "C" {

SYSV std::int32_t vsnprintf_body(char* buffer, std::uint64_t size, const char* format, SysvVaList* arguments) {
  SysvVaList list = *arguments;  // the caller of vsnprintf keeps its position
  return printf_result(format_text(buffer, size, format, list));
}

/// Long texts go out in parts of the buffer, so that no length asks for memory. What is returned is the text's length,
/// also when the stream takes none of it: a player without a console prints to such a one.
SYSV std::int32_t fprintf_body(void* stream, const char* format, SysvVaList* arguments) {
  const auto file = static_cast<std::FILE*>(stream);
  LockedStream locked(file);
  char buffer[1024];
  const TextSink::Drain drain = [](void* to, const char* text, std::uint64_t size) {
    static_cast<LockedStream*>(to)->write(text, size);
  };
  TextSink out(buffer, sizeof buffer, drain, &locked);
  SysvVaList list = *arguments;
  format_text(out, format, list);
  locked.write(buffer, out.held());
  if (file == stderr) std::fflush(file);
  return printf_result(out.count());
}

SYSV std::int32_t sscanf_body(const char* input, const char* format, SysvVaList* arguments) {
  SysvVaList list = *arguments;
  return scan_text(input, format, list);
}

}  // extern "C"

const ShimEntry formatted_text_rows[] = {
    {"_snprintf", shim(snprintf_entry)},
    {"_vsnprintf", shim(vsnprintf_body)},
    {"_fprintf", shim(fprintf_entry)},
    {"_sscanf", shim(sscanf_entry)},
};
constinit const ShimRows formatted_text_shims = formatted_text_rows;

}  // namespace vlm
