// Dates, and their texts in the form of ISO 8601: 2024-02-29T12:30:00Z, always UTC, whole seconds.
//
// The host's calendar begins in 1970 and ends in 3000. The Gregorian calendar repeats itself every 400 years (an era
// here). So any date is a date from 1970 to 2369, which the host knows, plus a number of eras.
#include <cstdio>
#include <ctime>

#include "abi/scan.h"
#include "objc/ns_string.h"
#include "objc/object.h"
#include "posix/time.h"

namespace vlm {
namespace {

/// An instance of NSDate.
struct NSDate : ObjcObject {
  double time;  // seconds since 1970-01-01 00:00:00 UTC
};
static_assert(sizeof(NSDate) == 16);

constexpr std::int64_t years_per_era = 400;
constexpr std::int64_t seconds_per_era = 146'097 * 86'400LL;

NSDate* date_new(ObjcClass& class_, double time) {
  auto* const date = objc_new<NSDate>(class_);
  date->time = time;
  return date;
}

/// 0 for what is no date.
double time_of(ObjcObject* date) {
  return objc_is_kind_of(date, &objc_class_NSDate) ? static_cast<NSDate*>(date)->time : 0;
}

SYSV NSDate* date_now(ObjcClass* receiver, Selector) {
  const auto ticks_since_1970 = static_cast<std::int64_t>(file_time_now() - file_time_of_1970);
  return date_new(*receiver, static_cast<double>(ticks_since_1970) / ticks_per_second);
}

SYSV double time_interval_since_date(NSDate* receiver, Selector, ObjcObject* other) {
  return receiver->time - time_of(other);
}

/// Fractions of a second are cut. A time that 64 bits cannot hold counts as 0.
SYSV NSString* string_from_date(ObjcObject*, Selector, ObjcObject* date) {
  const double time = time_of(date);
  const std::int64_t seconds = time > -0x1p63 && time < 0x1p63 ? static_cast<std::int64_t>(time) : 0;
  const std::int64_t era = floor_divide(seconds, seconds_per_era);
  const std::int64_t seconds_of_era = seconds - era * seconds_per_era;
  std::tm fields{};
  _gmtime64_s(&fields, &seconds_of_era);
  const long long year = fields.tm_year + 1900 + era * years_per_era;
  char text[64];
  std::snprintf(text, sizeof text, "%04lld-%02d-%02dT%02d:%02d:%02dZ", year, fields.tm_mon + 1, fields.tm_mday,
                fields.tm_hour, fields.tm_min, fields.tm_sec);
  return ns_string_new(text);
}

/// What follows the seconds (a Z, a fraction, a zone) is not read. A field may be too large: month 13 is January of the
/// next year. Null for a text without year, month and day.
SYSV NSDate* date_from_string(ObjcObject*, Selector, ObjcObject* string) {
  const char* const text = ns_string_utf8(string);
  if (text == nullptr) return nullptr;
  std::int32_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  const void* const places[] = {&year, &month, &day, &hour, &minute, &second};
  // Every register is taken, so all places are in memory.
  SysvVaList arguments = {SAVE_AREA_XMM, SAVE_AREA_SIZE, reinterpret_cast<const std::byte*>(places), nullptr};
  if (scan_text(text, "%d-%d-%dT%d:%d:%d", arguments) < 3) return nullptr;

  const std::int64_t months = (year - 1970LL) * 12 + (month - 1LL);
  const std::int64_t era = floor_divide(months, years_per_era * 12);
  const auto month_of_era = static_cast<std::int32_t>(months - era * years_per_era * 12);
  TimeFields first_of_month{};
  first_of_month.tm_mday = 1;
  first_of_month.tm_mon = month_of_era % 12;
  first_of_month.tm_year = 70 + month_of_era / 12;  // from 1900
  const std::int64_t time = era * seconds_per_era + seconds_of_fields(first_of_month) + (day - 1LL) * 86'400 +
                            hour * 3'600LL + minute * 60LL + second;
  return date_new(objc_class_NSDate, static_cast<double>(time));
}

}  // namespace

const MethodRow NSDate_class_methods[] = {{"date", shim(date_now)}, {}};
const MethodRow NSDate_methods[] = {{"timeIntervalSinceDate:", shim(time_interval_since_date)}, {}};

const MethodRow NSISO8601DateFormatter_class_methods[] = {{}};
const MethodRow NSISO8601DateFormatter_methods[] = {
    {"stringFromDate:", shim(string_from_date)},
    {"dateFromString:", shim(date_from_string)},
    {},
};

}  // namespace vlm
