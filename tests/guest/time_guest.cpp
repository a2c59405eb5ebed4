// Calendar, clocks and sleep.
#include "darwin_threads.h"

extern "C" {
uint64 mach_absolute_time();
int32 mach_timebase_info(uint32*);
uint64 clock_gettime_nsec_np(uint32);
}
static_assert(sizeof(tm) == 56 && sizeof(timeval) == 16);

namespace {

/// Checks one conversion and names it when it fails.
void check_text(const tm* time, const char* format, const char* expected) {
  char text[128];
  const uint64 length = strftime(text, sizeof text, format, time);
  uint64 expected_length = 0;
  while (expected[expected_length] != '\0') ++expected_length;
  guest_test::check(length == expected_length && strcmp(text, expected) == 0, format, time->tm_year, expected);
}

constexpr uint32 realtime = 0, monotonic = 6, uptime = 8, process_cpu = 12, thread_cpu = 16;
constexpr uint64 second = 1'000'000'000;

bool ordered(uint64 a, uint64 b, uint64 c) { return a <= b && b <= c; }

}  // namespace

GUEST_TEST(a_moment_has_its_fields_and_texts_in_utc) {
  static constexpr struct {
    int64 time;
    int32 wday, yday;
    const char* text;   // %Y-%m-%d %H:%M:%S
    const char* iso;    // %G %g %V %u
    const char* weeks;  // %U %W %w %j
    const char* parts;  // %e %l %k %C %y
  } cases[] = {
      {0, 4, 0, "1970-01-01 00:00:00", "1970 70 01 4", "00 00 4 001", " 1 12  0 19 70"},
      {951'782'399, 1, 58, "2000-02-28 23:59:59", "2000 00 09 1", "09 09 1 059", "28 11 23 20 00"},
      {951'868'799, 2, 59, "2000-02-29 23:59:59", "2000 00 09 2", "09 09 2 060", "29 11 23 20 00"},
      {1'104'537'600, 6, 0, "2005-01-01 00:00:00", "2004 04 53 6", "00 00 6 001", " 1 12  0 20 05"},
      {1'230'768'000 - 1, 3, 365, "2008-12-31 23:59:59", "2009 09 01 3", "52 52 3 366", "31 11 23 20 08"},
      {1'262'476'800, 0, 2, "2010-01-03 00:00:00", "2009 09 53 7", "01 00 0 003", " 3 12  0 20 10"},
      {2'147'483'648 + 12 * 3600, 2, 18, "2038-01-19 15:14:08", "2038 38 03 2", "03 03 2 019", "19  3 15 20 38"},
      {4'107'542'400, 1, 59, "2100-03-01 00:00:00", "2100 00 09 1", "09 09 1 060", " 1 12  0 21 00"},
  };
  for (const auto& c : cases) {
    const tm* const fields = gmtime(&c.time);
    CHECK(fields != nullptr && fields->tm_wday == c.wday && fields->tm_yday == c.yday && fields->tm_isdst == 0);
    CHECK(fields->tm_gmtoff == 0 && strcmp(fields->tm_zone, "UTC") == 0);
    check_text(fields, "%Y-%m-%d %H:%M:%S", c.text);
    check_text(fields, "%G %g %V %u", c.iso);
    check_text(fields, "%U %W %w %j", c.weeks);
    check_text(fields, "%e %l %k %C %y", c.parts);
  }
  static constexpr struct {
    const char *format, *text;
  } texts[] = {
      {"%F %T %R %D", "2001-09-09 01:46:40 01:46 09/09/01"},
      {"%c|%x|%X", "Sun Sep  9 01:46:40 2001|09/09/01|01:46:40"},
      {"%r|%v|%+", "01:46:40 AM| 9-Sep-2001|Sun Sep  9 01:46:40 UTC 2001"},
      {"%A %a %B %b %h %p %I", "Sunday Sun September Sep Sep AM 01"},
      {"%n%t%%%Ey%Od%z %Z", "\n\t%0109+0000 UTC"},
      {"%Q %", "Q %"},
      {"", ""},
  };
  const int64 billion = 1'000'000'000;
  for (const auto& t : texts) check_text(gmtime(&billion), t.format, t.text);
}

GUEST_TEST(a_text_that_does_not_fit_has_length_zero_and_stays_in_its_buffer) {
  const int64 time = 0;
  char text[8] = {1, 1, 1, 1, 1, 1, 1, 1};
  CHECK(strftime(text, 5, "%Y", gmtime(&time)) == 4 && text[4] == '\0' && text[5] == 1);
  CHECK(strftime(text, 4, "%Y", gmtime(&time)) == 0 && text[5] == 1);
  CHECK(strftime(text, 0, "", gmtime(&time)) == 0);
  tm wild{};
  wild.tm_wday = 7;
  wild.tm_mon = -1;
  check_text(&wild, "%a %A %b %B", "? ? ? ?");
}

GUEST_TEST(local_time_agrees_with_itself_in_every_zone) {
  // The last is the system's own zone.
  static constexpr const char* zones[] = {"UTC0", "EST5", "XYZ-05:30", "PST8PDT", nullptr};
  static constexpr int64 offsets[] = {0, -5 * 3600, 5 * 3600 + 30 * 60};
  static constexpr int64 times[] = {100'000, 951'782'399, 1'700'000'000, 1'720'000'000, 4'107'542'400};
  for (uint64 z = 0; z < 5; ++z) {
    CHECK((zones[z] ? setenv("TZ", zones[z], 1) : unsetenv("TZ")) == 0);
    for (const int64 time : times) {
      const tm* const shared = gmtime(&time);
      CHECK(localtime(&time) == shared);
      tm local = *shared;
      CHECK(strcmp(local.tm_zone, "LOCAL") == 0);
      if (z < 3) CHECK(local.tm_gmtoff == offsets[z]);
      const int64 shifted = time + local.tm_gmtoff;
      const tm* const utc = gmtime(&shifted);
      CHECK(utc->tm_mday == local.tm_mday && utc->tm_hour == local.tm_hour && utc->tm_min == local.tm_min);
      char offset[8], number[24];
      CHECK(strftime(offset, sizeof offset, "%z", &local) == 5);
      CHECK((offset[0] == '-') == (local.tm_gmtoff < 0));
      int64 read = 0;
      CHECK(strftime(number, sizeof number, "%s", &local) > 0);
      for (const char* c = number; *c; ++c) read = read * 10 + (*c - '0');
      CHECK(read == time);
      // Fields out of range come back in range; the zone is left alone, so nothing may follow its pointer.
      local.tm_sec += 86'400;
      local.tm_zone = reinterpret_cast<char*>(1);
      local.tm_gmtoff = 12345;
      local.tm_isdst = -1;
      const int64 next_day = mktime(&local);
      CHECK(next_day == time + 86'400 && local.tm_sec < 60);
      CHECK(local.tm_zone == reinterpret_cast<char*>(1) && local.tm_gmtoff == 12345);
      check_text(&local, "%z", offset);
      check_text(&local, "%Z", "LOCAL");
    }
  }
}

GUEST_TEST(a_time_that_the_host_refuses_is_null) {
  const int64 late = 1L << 60;
  CHECK(gmtime(&late) == nullptr);
  CHECK(localtime(&late) == nullptr);
}

GUEST_TEST(differences_are_taken_in_whole_seconds) {
  CHECK(difftime(5, 3) == 2.0 && difftime(3, 5) == -2.0);
  CHECK(difftime((1L << 53) + 3, 1L << 53) == 3.0);
}

GUEST_TEST(the_clocks_tell_the_same_time_in_their_units) {
  int64 stored = 0;
  timeval now;
  const int64 seconds = time(&stored);
  CHECK(seconds == stored && seconds > 1'600'000'000);
  CHECK(gettimeofday(&now, nullptr) == 0 && now.tv_sec - seconds >= 0 && now.tv_sec - seconds <= 2);
  CHECK(now.tv_usec >= 0 && now.tv_usec < 1'000'000);
  const uint64 micros = now.tv_sec * 1'000'000UL + now.tv_usec;
  CHECK(ordered(micros, clock_gettime_nsec_np(realtime) / 1000, micros + 2'000'000));
  uint32 base[2] = {};
  CHECK(mach_timebase_info(base) == 0 && base[0] == 1 && base[1] == 1);
  static constexpr uint32 steady[] = {monotonic, uptime, 4, 99};
  for (const uint32 id : steady) {
    const uint64 before = mach_absolute_time();
    const uint64 between = clock_gettime_nsec_np(id);
    CHECK(ordered(before, between, mach_absolute_time()));
  }
  // Work until a clock of the thread's time has moved.
  const uint64 start = mach_absolute_time(), thread_start = clock_gettime_nsec_np(thread_cpu);
  const uint64 clock_start = clock(), process_start = clock_gettime_nsec_np(process_cpu);
  while (clock_gettime_nsec_np(thread_cpu) < thread_start + second / 10 && mach_absolute_time() < start + 20 * second) {
  }
  const uint64 worked = clock_gettime_nsec_np(thread_cpu) - thread_start;
  CHECK(worked >= second / 10);
  CHECK(worked <= mach_absolute_time() - start + second / 10);
  CHECK(clock_gettime_nsec_np(process_cpu) - process_start >= worked - second / 50);
  CHECK(ordered(clock_start + worked / 1000 - 20'000, clock(), clock_gettime_nsec_np(process_cpu) / 1000));
}

GUEST_TEST(a_sleep_lasts_as_long_as_asked) {
  static constexpr struct {
    timespec request;
    uint64 shortest, longest;
  } cases[] = {{{0, 60'000'000}, second / 20, 5 * second},
               {{1, 100'000'000}, second + second / 20, 8 * second},
               {{0, 500'000}, 0, second},
               {{0, 0}, 0, second}};
  for (const auto& c : cases) {
    timespec left{7, 7};
    const uint64 start = mach_absolute_time();
    CHECK(nanosleep(&c.request, &left) == 0);
    CHECK(ordered(c.shortest, mach_absolute_time() - start, c.longest));
    CHECK(left.tv_sec == 0 && left.tv_nsec == 0);
  }
  static constexpr timespec bad_requests[] = {{-1, 0}, {0, -1}, {0, 1'000'000'000}};
  for (const timespec& bad : bad_requests) {
    *__error() = 0;
    CHECK(nanosleep(&bad, nullptr) == -1 && *__error() == 22);
  }
  CHECK(sched_yield() == 0);
}

GUEST_TEST(each_thread_has_a_calendar_record_of_its_own) {
  const int64 time = 0, later = 86'400;
  const tm* const mine = gmtime(&time);
  run_on_threads(1, [&](int64) { CHECK(gmtime(&later) != mine && mine->tm_mday == 1); });
}
