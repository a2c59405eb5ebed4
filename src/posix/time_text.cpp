// strftime, as macOS writes it in the C locale (the only one there is). The host's knows fewer conversions and writes
// some of them differently.
#include <cstdint>
#include <cstdio>

#include "posix/shims.h"
#include "posix/time.h"
#include "support/sysv.h"

namespace vlm {
namespace {

constexpr const char* days[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
constexpr const char* months[] = {"January", "February", "March",     "April",   "May",      "June",
                                  "July",    "August",   "September", "October", "November", "December"};

/// Text of a buffer with an end; what does not fit is dropped and remembered.
class Output {
 public:
  Output(char* buffer, std::uint64_t size) : start_(buffer), at_(buffer), left_(size) {}

  void add(char c) {
    if (left_ == 0) {
      overflow_ = true;
      return;
    }
    *at_++ = c;
    --left_;
  }
  void add(const char* text, std::size_t longest = SIZE_MAX) {
    for (; *text != '\0' && longest > 0; ++text, --longest) add(*text);
  }
  /// The number with at least `width` digits, filled up with `fill`.
  void add(std::int64_t number, int width, char fill = '0') {
    char text[32];
    std::snprintf(text, sizeof text, fill == '0' ? "%0*lld" : "%*lld", width, static_cast<long long>(number));
    add(text);
  }
  std::uint64_t written() const { return static_cast<std::uint64_t>(at_ - start_); }
  bool overflow() const { return overflow_; }

 private:
  char* start_;
  char* at_;
  std::uint64_t left_;
  bool overflow_ = false;
};

/// The name with this index, or "?"; abbreviated to three letters on request.
template <std::size_t Count>
void add_name(Output& out, const char* const (&names)[Count], std::int32_t index, bool abbreviated) {
  out.add(index >= 0 && index < static_cast<std::int32_t>(Count) ? names[index] : "?", abbreviated ? 3 : SIZE_MAX);
}

struct IsoWeek {
  std::int64_t year, week;
};

/// ISO 8601: weeks begin on Mondays and belong to the year that their Thursday is in.
IsoWeek iso_week(const TimeFields& time) {
  const auto is_leap = [](std::int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; };
  std::int64_t year = time.tm_year + 1900LL;
  std::int64_t thursday = std::int64_t{time.tm_yday} - (time.tm_wday + 6LL) % 7 + 3;
  if (thursday < 0) {
    --year;
    thursday += 365 + is_leap(year);
  } else if (const int length = 365 + is_leap(year); thursday >= length) {
    thursday -= length;
    ++year;
  }
  return {year, thursday / 7 + 1};
}

/// True for a record that _gmtime or _localtime filled. In others game code may never have set the zone (_mktime does
/// not), so neither its pointer nor its offset can be used.
bool knows_zone(const DarwinTm& time) { return time.tm_zone == utc_zone || time.tm_zone == local_zone; }

void add_zone_name(Output& out, const DarwinTm& time) { out.add(knows_zone(time) ? time.tm_zone : local_zone); }

void add_zone_offset(Output& out, const DarwinTm& time) {
  std::int64_t offset = time.tm_gmtoff;
  if (!knows_zone(time)) {
    TimeFields fields = time.fields;
    const std::int64_t seconds = seconds_of_local_time(fields);
    if (seconds == -1) return;
    offset = seconds_of_fields(fields) - seconds;
  }
  out.add(offset < 0 ? '-' : '+');
  const std::int64_t minutes = (offset < 0 ? -offset : offset) / 60;
  out.add(minutes / 60 * 100 + minutes % 60, 4);
}

void format_time(Output& out, const char* format, const DarwinTm& time) {
  const TimeFields& t = time.fields;
  const std::int64_t year = t.tm_year + 1900LL;
  const std::int32_t hour12 = t.tm_hour % 12 == 0 ? 12 : t.tm_hour % 12;
  for (; *format != '\0'; ++format) {
    if (*format != '%') {
      out.add(*format);
      continue;
    }
    do ++format;  // E and O ask for other digits and eras, which the C locale does not have
    while (*format == 'E' || *format == 'O');
    switch (*format) {
      case '\0': out.add('%'); return;
      case 'A': add_name(out, days, t.tm_wday, false); break;
      case 'a': add_name(out, days, t.tm_wday, true); break;
      case 'B': add_name(out, months, t.tm_mon, false); break;
      case 'b':
      case 'h': add_name(out, months, t.tm_mon, true); break;
      case 'C': out.add(floor_divide(year, 100), 2); break;
      case 'c': format_time(out, "%a %b %e %H:%M:%S %Y", time); break;
      case 'D':
      case 'x': format_time(out, "%m/%d/%y", time); break;
      case 'd': out.add(t.tm_mday, 2); break;
      case 'e': out.add(t.tm_mday, 2, ' '); break;
      case 'F': format_time(out, "%Y-%m-%d", time); break;
      case 'G': out.add(iso_week(t).year, 4); break;
      case 'g': out.add(iso_week(t).year - floor_divide(iso_week(t).year, 100) * 100, 2); break;
      case 'H': out.add(t.tm_hour, 2); break;
      case 'I': out.add(hour12, 2); break;
      case 'j': out.add(t.tm_yday + 1LL, 3); break;
      case 'k': out.add(t.tm_hour, 2, ' '); break;
      case 'l': out.add(hour12, 2, ' '); break;
      case 'M': out.add(t.tm_min, 2); break;
      case 'm': out.add(t.tm_mon + 1LL, 2); break;
      case 'n': out.add('\n'); break;
      case 'p': out.add(t.tm_hour >= 12 ? "PM" : "AM"); break;
      case 'R': format_time(out, "%H:%M", time); break;
      case 'r': format_time(out, "%I:%M:%S %p", time); break;
      case 'S': out.add(t.tm_sec, 2); break;
      case 's': {
        TimeFields fields = t;
        out.add(seconds_of_local_time(fields), 1);
        break;
      }
      case 'T':
      case 'X': format_time(out, "%H:%M:%S", time); break;
      case 't': out.add('\t'); break;
      case 'U': out.add((t.tm_yday + 7LL - t.tm_wday) / 7, 2); break;
      case 'u': out.add(t.tm_wday == 0 ? 7 : t.tm_wday, 1); break;
      case 'V': out.add(iso_week(t).week, 2); break;
      case 'v': format_time(out, "%e-%b-%Y", time); break;
      case 'W': out.add((t.tm_yday + 7LL - (t.tm_wday + 6LL) % 7) / 7, 2); break;
      case 'w': out.add(t.tm_wday, 1); break;
      case 'Y': out.add(year, 4); break;
      case 'y': out.add(year - floor_divide(year, 100) * 100, 2); break;
      case 'Z': add_zone_name(out, time); break;
      case 'z': add_zone_offset(out, time); break;
      case '+': format_time(out, "%a %b %e %H:%M:%S %Z %Y", time); break;
      default: out.add(*format); break;  // also "%%"
    }
  }
}

/// The number of characters without the NUL; 0 when they do not all fit with it.
SYSV std::uint64_t strftime_(char* buffer, std::uint64_t size, const char* format, const DarwinTm* time) {
  Output out(buffer, size);
  format_time(out, format, *time);
  const std::uint64_t length = out.written();
  out.add('\0');
  return out.overflow() ? 0 : length;
}

}  // namespace

const ShimEntry time_text_rows[] = {{"_strftime", shim(strftime_)}};
constinit const ShimRows time_text_shims = time_text_rows;

}  // namespace vlm
