// Which missing imports hurt first. By the order in which programs that were written elsewhere came to call what the
// library does not have: while they start, then whenever they print or read, then now and then.
#include <algorithm>
#include <iterator>
#include <string_view>

#include "inspect/gather.h"

namespace vlm::inspect {
namespace {

constexpr std::string_view early_calls[] = {
    // thread-local variables and the first lines of main()
    "__tlv_bootstrap",
    "_getpid",
    "_pthread_mutex_trylock",
    "_pthread_join",
    "_pthread_once",
    "_pthread_rwlock_init",
    "_pthread_rwlock_rdlock",
    "_pthread_rwlock_wrlock",
    "_pthread_rwlock_unlock",
    "_dispatch_async_f",
    "_os_unfair_lock_lock",
    "_setvbuf",
    "_isalnum",
    "_localeconv",
    "_getuid",
    "_sysctlbyname",
    // whatever prints
    "_printf",
    "_puts",
    "_putchar",
    "_fputs",
    "_fputc",
    "_vfprintf",
    "_vprintf",
    "_perror",
    "_fileno",
    // whatever reads and takes texts apart
    "_fgets",
    "_getc",
    "_fgetc",
    "_ungetc",
    "_feof",
    "_ferror",
    "_clearerr",
    "_strtod",
    "_strtoll",
    "_strtoull",
    "_atof",
    "_strcspn",
    "_strspn",
    "_strpbrk",
    "_strcoll",
    "_strerror",
    "_strncat",
    "_strcat",
    "_strnlen",
    "_strcasecmp",
    "_frexp",
    "_ldexp",
    "___toupper",
    "_toupper",
    "_tolower",
    "_floor",
    "_ceil",
    "_round",
    "_sqrt",
    // files
    "_remove",
    "_fsync",
    "_fchmod",
    "_fchown",
    "_pread",
    "_pwrite",
    "_freopen",
    "_tmpfile",
    "_tmpnam",
    "_mkstemp",
    "_realpath$DARWIN_EXTSN",
    // waiting
    "_usleep",
    "_sleep",
    "_select",
    "_poll",
    "_pthread_cond_timedwait",
    // the end of the road
    "___assert_rtn",
};

}  // namespace

std::size_t call_rank(std::string_view import) {
  return static_cast<std::size_t>(std::ranges::find(early_calls, import) - std::begin(early_calls));
}

}  // namespace vlm::inspect
