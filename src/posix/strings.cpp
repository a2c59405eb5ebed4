// String shims: NUL-terminated byte strings.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "posix/shims.h"
#include "support/bytes.h"
#include "support/sysv.h"

namespace vlm {
namespace {

SYSV std::int32_t strncmp_(const char* a, const char* b, std::uint64_t size) { return std::strncmp(a, b, size); }
SYSV const char* strchr_(const char* text, std::int32_t c) { return std::strchr(text, c); }
SYSV const char* strrchr_(const char* text, std::int32_t c) { return std::strrchr(text, c); }
SYSV const char* strstr_(const char* text, const char* part) { return std::strstr(text, part); }
SYSV char* strcpy_(char* to, const char* from) { return std::strcpy(to, from); }
SYSV char* strncpy_(char* to, const char* from, std::uint64_t size) { return std::strncpy(to, from, size); }
SYSV char* strdup_(const char* text) { return strdup(text); }

/// Returns the length that the whole copy would have had.
SYSV std::uint64_t strlcpy_(char* to, const char* from, std::uint64_t size) {
  const std::uint64_t length = text_length(from);
  if (size == 0) return length;
  const std::uint64_t copied = std::min(length, size - 1);
  std::memcpy(to, from, copied);
  to[copied] = '\0';
  return length;
}

}  // namespace

const ShimEntry string_rows[] = {
    {"_strlen", shim(text_length)}, {"_strcmp", shim(compare_texts)}, {"_strncmp", shim(strncmp_)},
    {"_strchr", shim(strchr_)},     {"_strrchr", shim(strrchr_)},     {"_strstr", shim(strstr_)},
    {"_strcpy", shim(strcpy_)},     {"_strncpy", shim(strncpy_)},     {"_strdup", shim(strdup_)},
    {"_strlcpy", shim(strlcpy_)},
};
constinit const ShimRows string_shims = string_rows;

}  // namespace vlm
