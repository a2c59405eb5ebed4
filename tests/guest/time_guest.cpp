// Calendar, clocks and waits where macOS goes its own way; differ.cpp compares the calendar's arithmetic.
#include "darwin_threads.h"

extern "C" {
uint64 mach_absolute_time(), clock_gettime_nsec_np(uint32);
int32 mach_timebase_info(uint32*);
}
static_assert(sizeof(tm) == 56 && sizeof(timeval) == 16);

namespace {

/// strftime makes exactly this text of it.
bool is_text(const tm* time, const char* format, const char* expected) {
  char text[128];
  return strftime(text, sizeof text, format, time) == strlen(expected) && same(text, expected);
}

constexpr uint32 realtime = 0, monotonic = 6, process_cpu = 12, thread_cpu = 16;
constexpr uint64 second = 1'000'000'000;

bool ordered(uint64 a, uint64 b, uint64 c) { return a <= b && b <= c; }

}  // namespace

GUEST_TEST(a_moment_has_its_fields_and_texts_in_utc) {
  const int64 billion = 1'000'000'000, late = 1L << 60;
  const tm* const fields = gmtime(&billion);
  CHECK(fields->tm_gmtoff == 0 && same(fields->tm_zone, "UTC"));
  CHECK(is_text(fields, "%c|%x|%X", "Sun Sep  9 01:46:40 2001|09/09/01|01:46:40"));
  CHECK(is_text(fields, "%r|%v|%+|%Ey%Od%z %Z|%Q %",
                "01:46:40 AM| 9-Sep-2001|Sun Sep  9 01:46:40 UTC 2001|0109+0000 UTC|Q %"));
  CHECK(gmtime(&late) == nullptr && localtime(&late) == nullptr && difftime((1L << 53) + 3, 1L << 53) == 3.0);
  char text[] = "......";
  CHECK(strftime(text, 5, "%Y", fields) == 4 && memcmp(text, "2001\0.", 7) == 0 &&
        strftime(text, 4, "%Y", fields) == 0);
  tm wild{};
  wild.tm_wday = 7;
  wild.tm_mon = -1;
  CHECK(is_text(&wild, "%a %A %b %B", "? ? ? ?"));
  run_on_threads(1, [&](int64) { CHECK(gmtime(&late) != fields && localtime(&billion) != fields); });
}

GUEST_TEST(local_time_agrees_with_itself_in_every_zone) {
  static constexpr const char* zones[] = {"EST5", "XYZ-05:30", "PST8PDT", nullptr};  // the last: the system's own
  static constexpr int64 offsets[] = {-5 * 3600, 5 * 3600 + 30 * 60}, times[] = {100'000, 1'720'000'000, 4'107'542'400};
  for (uint64 z = 0; z < 4; ++z) {
    CHECK((zones[z] ? setenv("TZ", zones[z], 1) : unsetenv("TZ")) == 0);
    for (const int64 time : times) {
      tm local = *localtime(&time);
      CHECK(z > 1 || local.tm_gmtoff == offsets[z]);
      const int64 shifted = time + local.tm_gmtoff;
      const tm* const utc = gmtime(&shifted);
      CHECK(utc->tm_mday == local.tm_mday && utc->tm_hour == local.tm_hour && utc->tm_min == local.tm_min);
      char offset[8], number[24];
      CHECK(strftime(offset, sizeof offset, "%z", &local) == 5 && (offset[0] == '-') == (local.tm_gmtoff < 0));
      CHECK(strftime(number, sizeof number, "%s", &local) > 0 && atol(number) == time);
      // Fields out of range come back in range; the zone is left alone, so nothing may follow its pointer.
      local.tm_sec += 86'400;
      local.tm_zone = reinterpret_cast<char*>(1);
      local.tm_isdst = -1;
      CHECK(mktime(&local) == time + 86'400 && local.tm_sec < 60 && local.tm_zone == reinterpret_cast<char*>(1));
      CHECK(is_text(&local, "%z", offset) && is_text(&local, "%Z", "LOCAL"));
    }
  }
}

GUEST_TEST(the_clocks_tell_the_same_time_in_their_units) {
  int64 stored = 0;
  timeval now;
  memset(&now, 0xAB, sizeof now);
  const int64 seconds = time(&stored);
  CHECK(seconds == stored && gettimeofday(&now, nullptr) == 0 && ordered(seconds, now.tv_sec, seconds + 2));
  CHECK(now.tv_usec >= 0 && now.tv_usec < 1'000'000 && reinterpret_cast<const uint32*>(&now)[3] == 0xABABABAB);
  const uint64 micros = now.tv_sec * 1'000'000UL + now.tv_usec;
  CHECK(ordered(micros, clock_gettime_nsec_np(realtime) / 1000, micros + 2'000'000));
  uint32 base[2] = {};
  CHECK(mach_timebase_info(base) == 0 && base[0] == 1 && base[1] == 1);
  const uint64 start = mach_absolute_time(), thread_start = clock_gettime_nsec_np(thread_cpu);
  CHECK(ordered(start, clock_gettime_nsec_np(monotonic), mach_absolute_time()));
  // Work until a clock of the thread's time has moved.
  const uint64 clock_start = clock();
  while (clock_gettime_nsec_np(thread_cpu) < thread_start + second / 10 && mach_absolute_time() < start + 20 * second) {
  }
  const uint64 worked = clock_gettime_nsec_np(thread_cpu) - thread_start;
  CHECK(ordered(second / 10, worked, mach_absolute_time() - start + second / 10));
  CHECK(ordered(clock_start + worked / 1000 - 20'000, clock(), clock_gettime_nsec_np(process_cpu) / 1000));
}

GUEST_TEST(a_wait_is_never_shorter_than_asked) {
  void* const semaphore = dispatch_semaphore_create(0);
  static constexpr int64 lengths[] = {0, 1, 999'999, 1'000'001, 15'700'000, 1'100'000'000}, day = 86'400 * second;
  for (const int64 length : lengths) {
    const timespec request{length / 1'000'000'000, length % 1'000'000'000};
    timespec left{7, 7};
    const uint64 start = mach_absolute_time();
    CHECK(nanosleep(&request, &left) == 0 && left.tv_sec == 0 && left.tv_nsec == 0 && sched_yield() == 0);
    const uint64 slept = mach_absolute_time();
    CHECK(ordered(length, slept - start, length + 5 * second));
    CHECK(dispatch_semaphore_wait(semaphore, dispatch_time(0, length)) == 49);
    CHECK(ordered(length, mach_absolute_time() - slept, length + 5 * second));
  }
  CHECK(dispatch_semaphore_wait(semaphore, dispatch_time(0, -1000 * day)) == 49);
  run_on_threads(2, [&](int64 own) {  // the signal comes while the other waits for days
    if (own == 0) CHECK(dispatch_semaphore_wait(semaphore, dispatch_time(0, 100 * day)) == 0);
    constexpr timespec a_while{0, 30'000'000};
    if (own == 1) CHECK(nanosleep(&a_while, nullptr) == 0 && dispatch_semaphore_signal(semaphore) == 0);
  });
  dispatch_release(semaphore);
  constexpr timespec negative{0, -1}, too_many{0, 1'000'000'000};
  CHECK(nanosleep(&negative, nullptr) == -1 && *__error() == EINVAL && nanosleep(&too_many, nullptr) == -1);
}
