// What game code learns about the system: a fixed x86-64 Darwin whose processors, memory and name are the host's.
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "posix/shims.h"
#include "posix/time.h"
#include "support/darwin_errno.h"
#include "support/pages.h"
#include "support/sysv.h"
#include "support/text.h"

namespace vlm {
namespace {

constexpr char os_type[] = "Darwin";
constexpr char os_release[] = "21.6.0";
constexpr char machine[] = "x86_64";
constexpr std::uint64_t max_descriptors = 10240;

std::uint32_t processor_count() { return GetActiveProcessorCount(ALL_PROCESSOR_GROUPS); }

std::uint64_t memory_size() {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  GlobalMemoryStatusEx(&status);
  return status.ullTotalPhys;
}

// <unistd.h>
enum SysconfName : std::int32_t {
  SC_CLK_TCK = 3,
  SC_OPEN_MAX = 5,
  SC_PAGESIZE = 29,
  SC_NPROCESSORS_CONF = 57,
  SC_NPROCESSORS_ONLN = 58,
  SC_PHYS_PAGES = 200,
};

SYSV std::int64_t sysconf_(std::int32_t name) {
  switch (name) {
    case SC_CLK_TCK: return 100;
    case SC_OPEN_MAX: return max_descriptors;
    case SC_PAGESIZE: return page_size;
    case SC_NPROCESSORS_CONF:
    case SC_NPROCESSORS_ONLN: return processor_count();
    case SC_PHYS_PAGES: return static_cast<std::int64_t>(memory_size() / page_size);
    default: return fail(DARWIN_EINVAL);
  }
}

SYSV std::int32_t getpagesize_() { return page_size; }

// <sys/sysctl.h>
enum SysctlName : std::int32_t {
  CTL_KERN = 1,
  KERN_OSTYPE = 1,
  KERN_OSRELEASE = 2,
  KERN_PROC = 14,
  KERN_BOOTTIME = 21,
  CTL_HW = 6,
  HW_MODEL = 2,
  HW_NCPU = 3,
  HW_PHYSMEM = 5,
  HW_PAGESIZE = 7,
  HW_MEMSIZE = 24,
  HW_AVAILCPU = 25,
};

constexpr std::uint64_t kinfo_proc_size = 648;

/// Answers a query whose value has a fixed size; with no place for the value, with the size alone.
template <class T>
std::int32_t give(const T& value, void* old, std::uint64_t* length) {
  if (old != nullptr) {
    if (length == nullptr || *length < sizeof value) return fail(DARWIN_ENOMEM);
    std::memcpy(old, &value, sizeof value);
  }
  if (length != nullptr) *length = sizeof value;
  return 0;
}

/// A process record, whichever process was asked for: all fields are zero.
std::int32_t give_process(void* old, std::uint64_t* length) {
  if (old == nullptr || length == nullptr) {
    if (length != nullptr) *length = kinfo_proc_size;
  } else {
    std::memset(old, 0, *length);
  }
  return 0;
}

DarwinTimeval boot_time() {
  const auto now = static_cast<std::int64_t>((file_time_now() - file_time_of_1970) / ticks_per_second);
  return {now - static_cast<std::int64_t>(GetTickCount64() / 1000), 0, 0};
}

/// New values are never taken.
SYSV std::int32_t sysctl_(const std::int32_t* name, std::uint32_t name_length, void* old, std::uint64_t* old_length,
                          const void* new_value, std::uint64_t new_length) {
  if (name_length < 2) return fail(DARWIN_ENOENT);
  if (name[0] == CTL_KERN) {
    switch (name[1]) {
      case KERN_OSTYPE: return give(os_type, old, old_length);
      case KERN_OSRELEASE: return give(os_release, old, old_length);
      case KERN_PROC: return give_process(old, old_length);
      case KERN_BOOTTIME: return give(boot_time(), old, old_length);
    }
  } else if (name[0] == CTL_HW) {
    switch (name[1]) {
      case HW_MODEL: return give(machine, old, old_length);
      case HW_NCPU:
      case HW_AVAILCPU: return give(processor_count(), old, old_length);
      case HW_PHYSMEM:
      case HW_MEMSIZE: return give(memory_size(), old, old_length);
      case HW_PAGESIZE: return give(std::uint32_t{page_size}, old, old_length);
    }
  }
  return fail(DARWIN_ENOENT);
}

/// `struct utsname`, <sys/utsname.h>.
struct SystemName {
  char sysname[256], nodename[256], release[256], version[256], machine[256];
};
static_assert(sizeof(SystemName) == 1280);

/// The host's name in UTF-8. False, with nothing written, when it is not known or does not fit.
bool host_name(char* buffer, std::uint64_t capacity) {
  wchar_t wide[256];
  DWORD size = std::size(wide);
  const auto name = GetComputerNameW(wide, &size) ? utf8_from_utf16(wide) : nullptr;
  if (!name || std::strlen(name.get()) >= capacity) return false;
  std::strcpy(buffer, name.get());
  return true;
}

SYSV std::int32_t uname_(SystemName* result) {
  *result = {"Darwin", "", "21.6.0", "Darwin Kernel Version 21.6.0", "x86_64"};
  host_name(result->nodename, sizeof result->nodename);
  return 0;
}

SYSV std::int32_t gethostname_(char* buffer, std::uint64_t length) { return host_name(buffer, length) ? 0 : -1; }

/// `struct rlimit`, <sys/resource.h>.
struct ResourceLimit {
  std::uint64_t current, maximum;
};
static_assert(sizeof(ResourceLimit) == 16);

constexpr std::int32_t RLIMIT_STACK = 3;
constexpr std::int32_t RLIMIT_NOFILE = 8;
constexpr std::uint64_t RLIM_INFINITY = 0x7FFF'FFFF'FFFF'FFFF;
constexpr std::uint64_t stack_limit = 8 << 20;  // what new threads of the game get

SYSV std::int32_t getrlimit_(std::int32_t resource, ResourceLimit* result) {
  const std::uint64_t limit = resource == RLIMIT_STACK    ? stack_limit
                              : resource == RLIMIT_NOFILE ? max_descriptors
                                                          : RLIM_INFINITY;
  *result = {limit, limit};
  return 0;
}

/// `struct rusage`, <sys/resource.h>.
struct ResourceUsage {
  DarwinTimeval ru_utime, ru_stime;
  std::uint64_t counters[14];  // not kept
};
static_assert(sizeof(ResourceUsage) == 144);

/// The process's times, also for a thread or for children.
SYSV std::int32_t getrusage_(std::int32_t who, ResourceUsage* result) {
  const CpuTimes times = process_times();
  *result = {timeval_of_ticks(times.user), timeval_of_ticks(times.kernel), {}};
  return 0;
}

// The first user of a Mac, and its group "staff".
SYSV std::uint32_t geteuid_() { return 501; }
SYSV std::uint32_t getegid_() { return 20; }

}  // namespace

const ShimEntry system_info_rows[] = {
    {"_sysconf", shim(sysconf_)},     {"_getpagesize", shim(getpagesize_)}, {"_sysctl", shim(sysctl_)},
    {"_uname", shim(uname_)},         {"_gethostname", shim(gethostname_)}, {"_getrlimit", shim(getrlimit_)},
    {"_getrusage", shim(getrusage_)}, {"_geteuid", shim(geteuid_)},         {"_getegid", shim(getegid_)},
};
constinit const ShimRows system_info_shims = system_info_rows;

}  // namespace vlm
