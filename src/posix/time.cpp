// Clocks and the calendar. Time is the host's; records and units are macOS's.
#include "posix/time.h"

#include <windows.h>

#include <algorithm>
#include <bit>
#include <cstdint>

#include "posix/shims.h"
#include "support/darwin_errno.h"
#include "support/sysv.h"

namespace vlm {

const char utc_zone[4] = "UTC";
const char local_zone[6] = "LOCAL";

namespace {

/// Nanoseconds per tick of the performance counter. Written by static start-up, then read-only.
double nanoseconds_per_count = 0;

// What _gmtime and _localtime return: one for both, overwritten by each call, as long-lived as its thread.
thread_local DarwinTm thread_fields;

std::uint64_t ticks(FILETIME time) { return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime; }

CpuTimes thread_times() {
  FILETIME created, ended, kernel{}, user{};
  GetThreadTimes(GetCurrentThread(), &created, &ended, &kernel, &user);
  return {ticks(user), ticks(kernel)};
}

// ---- Calendar ----

SYSV DarwinTm* gmtime_(const std::int64_t* time) {
  std::tm host;
  if (_gmtime64_s(&host, time) != 0) return nullptr;
  thread_fields = {std::bit_cast<TimeFields>(host), 0, 0, utc_zone};
  return &thread_fields;
}

/// The offset is what lies between the fields and the time, so both always tell the same, whether the system or the
/// variable TZ sets the zone.
SYSV DarwinTm* localtime_(const std::int64_t* time) {
  std::tm host;
  if (_localtime64_s(&host, time) != 0) return nullptr;
  const auto fields = std::bit_cast<TimeFields>(host);
  thread_fields = {fields, 0, seconds_of_fields(fields) - *time, local_zone};
  return &thread_fields;
}

SYSV std::int64_t mktime_(DarwinTm* time) { return seconds_of_local_time(time->fields); }

SYSV double difftime_(std::int64_t a, std::int64_t b) {
  return static_cast<double>(static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b)));
}

// ---- Clocks ----

SYSV std::int64_t time_(std::int64_t* result) {
  const std::int64_t now = _time64(nullptr);
  if (result != nullptr) *result = now;
  return now;
}

/// The zone is a relic that macOS leaves alone, too; so is what lies behind the microseconds.
SYSV std::int32_t gettimeofday_(DarwinTimeval* result, void* zone) {
  if (result == nullptr) return 0;
  const DarwinTimeval now = timeval_of_ticks(file_time_now() - file_time_of_1970);
  result->tv_sec = now.tv_sec;
  result->tv_usec = now.tv_usec;
  return 0;
}

/// In macOS's CLOCKS_PER_SEC, microseconds.
SYSV std::uint64_t clock_() {
  const CpuTimes times = process_times();
  return (times.kernel + times.user) / 10;
}

SYSV std::int32_t nanosleep_(const DarwinTimespec* request, DarwinTimespec* remainder) {
  if (request->tv_sec < 0 || request->tv_nsec < 0 || request->tv_nsec >= 1'000'000'000) return fail(DARWIN_EINVAL);
  // Ends in some hundred years at the latest, which keeps the sum in range.
  const auto seconds = std::min(static_cast<std::uint64_t>(request->tv_sec), std::uint64_t{1} << 33);
  const std::uint64_t length = seconds * 1'000'000'000 + static_cast<std::uint64_t>(request->tv_nsec);
  wait_until(monotonic_nanoseconds() + length, [length](DWORD milliseconds) {
    if (milliseconds > 0 || length == 0) {
      Sleep(milliseconds);
    } else {
      SwitchToThread();  // a sleep would be too long
    }
    return false;
  });
  if (remainder != nullptr) *remainder = {};  // nothing interrupts a sleep
  return 0;
}

SYSV std::int32_t sched_yield_() {
  SwitchToThread();
  return 0;
}

SYSV std::uint64_t mach_absolute_time_() { return monotonic_nanoseconds(); }

/// `mach_timebase_info_data_t`: a tick of mach_absolute_time is numerator / denominator nanoseconds.
struct TimebaseInfo {
  std::uint32_t numerator, denominator;
};

SYSV std::int32_t mach_timebase_info_(TimebaseInfo* info) {
  *info = {1, 1};
  return 0;
}

// <time.h> of macOS. All others are kinds of monotonic clocks.
constexpr std::uint32_t CLOCK_REALTIME_ID = 0;
constexpr std::uint32_t CLOCK_PROCESS_CPUTIME = 12;
constexpr std::uint32_t CLOCK_THREAD_CPUTIME = 16;

SYSV std::uint64_t clock_gettime_nsec_np_(std::uint32_t clock) {
  const auto nanoseconds = [](CpuTimes times) { return (times.kernel + times.user) * 100; };
  switch (clock) {
    case CLOCK_REALTIME_ID: return (file_time_now() - file_time_of_1970) * 100;
    case CLOCK_PROCESS_CPUTIME: return nanoseconds(process_times());
    case CLOCK_THREAD_CPUTIME: return nanoseconds(thread_times());
    default: return monotonic_nanoseconds();
  }
}

}  // namespace

const ShimEntry time_rows[] = {
    {"_gmtime", shim(gmtime_)},
    {"_localtime", shim(localtime_)},
    {"_mktime", shim(mktime_)},
    {"_difftime", shim(difftime_)},
    {"_time", shim(time_)},
    {"_gettimeofday", shim(gettimeofday_)},
    {"_clock", shim(clock_)},
    {"_nanosleep", shim(nanosleep_)},
    {"_sched_yield", shim(sched_yield_)},
    {"_mach_absolute_time", shim(mach_absolute_time_)},
    {"_mach_timebase_info", shim(mach_timebase_info_)},
    {"_clock_gettime_nsec_np", shim(clock_gettime_nsec_np_)},
};
constinit const ShimRows time_shims = time_rows;

std::int64_t seconds_of_fields(const TimeFields& fields) {
  // Years from March on: the leap day is a year's last.
  const std::int64_t month = (fields.tm_mon + 10) % 12;
  const std::int64_t year = fields.tm_year + 1900LL - (fields.tm_mon < 2);
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t year_of_era = year - era * 400;
  const std::int64_t day_of_year = (153 * month + 2) / 5 + fields.tm_mday - 1;
  const std::int64_t day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  const std::int64_t days = era * 146'097 + day_of_era - 719'468;  // from March 1st of the year 0 to 1970
  return ((days * 24 + fields.tm_hour) * 60 + fields.tm_min) * 60 + fields.tm_sec;
}

std::int64_t seconds_of_local_time(TimeFields& fields) {
  auto host = std::bit_cast<std::tm>(fields);
  const std::int64_t seconds = _mktime64(&host);
  fields = std::bit_cast<TimeFields>(host);
  return seconds;
}

std::uint64_t file_time_now() {
  FILETIME now;
  GetSystemTimePreciseAsFileTime(&now);
  return ticks(now);
}

CpuTimes process_times() {
  FILETIME created, ended, kernel{}, user{};
  GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
  return {ticks(user), ticks(kernel)};
}

DarwinTimeval timeval_of_ticks(std::uint64_t ticks) {
  return {static_cast<std::int64_t>(ticks / ticks_per_second), static_cast<std::int32_t>(ticks % ticks_per_second / 10),
          0};
}

std::uint64_t monotonic_nanoseconds() {
  LARGE_INTEGER count;
  QueryPerformanceCounter(&count);
  return static_cast<std::uint64_t>(static_cast<double>(count.QuadPart) * nanoseconds_per_count);
}

void set_up_time_base() {
  LARGE_INTEGER frequency;
  QueryPerformanceFrequency(&frequency);
  nanoseconds_per_count = 1e9 / static_cast<double>(frequency.QuadPart);
}

}  // namespace vlm
