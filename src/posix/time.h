// macOS's records of time, and the calendar behind them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ctime>

namespace vlm {

/// `struct timeval`, <sys/_types/_timeval.h>.
struct DarwinTimeval {
  std::int64_t tv_sec;
  std::int32_t tv_usec;
  std::int32_t padding;
};
static_assert(sizeof(DarwinTimeval) == 16 && offsetof(DarwinTimeval, tv_usec) == 8);

/// `struct timespec`.
struct DarwinTimespec {
  std::int64_t tv_sec;
  std::int64_t tv_nsec;
};
static_assert(sizeof(DarwinTimespec) == 16);

/// The nine fields that C defines; the host's `struct tm` has them in the same order and nothing else.
struct TimeFields {
  std::int32_t tm_sec, tm_min, tm_hour, tm_mday, tm_mon, tm_year, tm_wday, tm_yday, tm_isdst;
};
static_assert(sizeof(TimeFields) == sizeof(std::tm));

/// `struct tm`, <time.h>.
struct DarwinTm {
  TimeFields fields;
  std::int32_t padding;
  std::int64_t tm_gmtoff;  // seconds east of UTC
  const char* tm_zone;     // a constant text
};
static_assert(sizeof(DarwinTm) == 56 && offsetof(DarwinTm, tm_gmtoff) == 40 && offsetof(DarwinTm, tm_zone) == 48);

/// The texts that _gmtime and _localtime put into tm_zone: by their addresses one knows a record that they filled.
extern const char utc_zone[4];
extern const char local_zone[6];

/// Seconds since 1970 of fields in range, taken as they stand: no zone, no daylight saving.
std::int64_t seconds_of_fields(const TimeFields& fields);

/// Seconds since 1970 of local time, -1 when the host refuses it; brings the fields into their ranges.
std::int64_t seconds_of_local_time(TimeFields& fields);

/// Microseconds and less of a host time interval or of a point in time: 100 ns each.
inline constexpr std::uint64_t ticks_per_second = 10'000'000;

/// Time since 1601-01-01 in ticks of 100 ns, as exactly as the system knows it.
std::uint64_t file_time_now();
/// The same moment counted from 1970.
inline constexpr std::uint64_t file_time_of_1970 = 116'444'736'000'000'000;

struct CpuTimes {
  std::uint64_t user, kernel;  // ticks of 100 ns
};
CpuTimes process_times();

/// Ticks of 100 ns as a macOS record; what is less than a microsecond is cut.
DarwinTimeval timeval_of_ticks(std::uint64_t ticks);

/// Finds the length of a tick of the monotonic clock. Part of static start-up.
void set_up_time_base();

/// Nanoseconds since the machine started: what mach_absolute_time, monotonic clocks and dispatch count in.
std::uint64_t monotonic_nanoseconds();

/// Calls `wait` with whole milliseconds, 0 for less than one, until it is true or the moment of monotonic_nanoseconds()
/// has come; at least once. The host's waits may end a tick early, and none is longer than 49 days.
template <class Wait>
bool wait_until(std::uint64_t moment, Wait wait) {
  constexpr std::uint64_t longest = 0xFFFF'FFFE;  // one more is INFINITE
  for (;;) {
    const std::uint64_t now = monotonic_nanoseconds();
    const std::uint64_t left = moment > now ? moment - now : 0;
    if (wait(static_cast<std::uint32_t>(std::min(left / 1'000'000, longest)))) return true;
    if (left == 0) return false;
  }
}

/// Rounds down, whatever the sign; calendars need it. `by` is above 0.
constexpr std::int64_t floor_divide(std::int64_t value, std::int64_t by) { return value / by - (value % by < 0); }

}  // namespace vlm
