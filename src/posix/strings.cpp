// String shims: NUL-terminated byte strings.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {
namespace {

SYSV std::uint64_t strlen_(const char* text) { return std::strlen(text); }
SYSV std::int32_t strcmp_(const char* a, const char* b) { return std::strcmp(a, b); }
SYSV std::int32_t strncmp_(const char* a, const char* b, std::uint64_t size) { return std::strncmp(a, b, size); }
SYSV char* strcpy_(char* to, const char* from) { return std::strcpy(to, from); }
SYSV char* strncpy_(char* to, const char* from, std::uint64_t size) { return std::strncpy(to, from, size); }
SYSV const char* strchr_(const char* text, std::int32_t c) { return std::strchr(text, c); }
SYSV const char* strstr_(const char* text, const char* part) { return std::strstr(text, part); }
SYSV char* strdup_(const char* text) { return strdup(text); }

}  // namespace

const ShimEntry string_shims[8] = {
    {"_strlen", shim(strlen_)}, {"_strcmp", shim(strcmp_)}, {"_strncmp", shim(strncmp_)}, {"_strcpy", shim(strcpy_)},
    {"_strncpy", shim(strncpy_)}, {"_strchr", shim(strchr_)}, {"_strstr", shim(strstr_)}, {"_strdup", shim(strdup_)},
};

}  // namespace vlm
