// The C library where macOS goes its own way, or the host's could come through: formats and scans, numbers, character
// classes, error texts, results in registers, standard streams. differ.cpp compares all the rest.
#include "darwin_threads.h"

extern "C" {
_Complex double __sincos_stret(double);
_Complex float __sincosf_stret(float);
double sin(double), cos(double);
uint64 strlcpy(char*, const char*, uint64);
int32 __maskrune(int32, uint64), __tolower(int32), freelocale(void*);
const char* setlocale(int32, const char*);
void* newlocale(int32, const char*, void*);
extern const uint8 _DefaultRuneLocale[3208];
}

namespace {

constexpr const char* scratch = "c_library_guest.txt";
constexpr float infinite = __builtin_inff();
constexpr double nan = __builtin_nan("");

template <class... T>
void prints(const char* expected, const char* format, T... arguments) {
  char text[1000];
  const int32 length = snprintf(text, sizeof text, format, arguments...);
  guest_test::check(same(text, expected) && length == static_cast<int32>(strlen(text)), format, __LINE__, text);
}

/// sscanf stores exactly these values; behind each, and in the next place, is what was there before.
template <class... T>
void scans(const char* input, const char* format, int32 result, const T&... values) {
  char places[8][64];
  memset(places, '?', sizeof places);
  const int32 found =
      sscanf(input, format, places[0], places[1], places[2], places[3], places[4], places[5], places[6]);
  const char* place = places[0];
  bool right = found == result;
  const auto holds = [&](const auto& value) {
    const uint64 size = sizeof value == sizeof(long double) ? 10 : sizeof value;
    right = right && memcmp(place, &value, size) == 0 && place[size] == '?';
    place += sizeof places[0];
  };
  (holds(values), ...);
  guest_test::check(right && *place == '?', format, found, input);
}

}  // namespace

GUEST_TEST(arguments_arrive_from_registers_and_from_the_stack) {
  prints("12345678", "%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8);
  prints("1 2 3 4 5 6 7 8.5 9.5", "%g %g %g %g %g %g %g %g %g", 1., 2., 3., 4., 5., 6., 7., 8.5, 9.5);
  prints("1 2 3 4 5.5 6 -7.2 end", "%d %d %d %d %Lg %d %.1Lf %s", 1, 2, 3, 4, 5.5L, 6, -7.25L, "end");
  scans("1 2 3 4 5 -6 seven", "%d %d %d %*d %d %ld %15s%n", 6, 1, 2, 3, 5, -6L, "seven", 18);
}

GUEST_TEST(text_is_formatted_as_on_macos) {
  prints("-1|5|-1|1234567", "%d|%Ld|%qd|%'d", 0x1234567'FFFFFFFF, 0x1'00000005, -1L, 1234567);
  prints("nan|NAN|nan|nan  |  nan", "%f|%+F|% g|%-5e|%05a", -nan, nan, -nan, nan, nan);
  prints("0x2p+0|0x2.0p+0", "%.0a|%.1a", 1.5, 1.96875);
  prints("(null)|(nu|  (null)|(null)", "%s|%.3s|%8s|%.9ls", nullptr, nullptr, nullptr, nullptr);
  prints("00ef|0000g|0x0|0x10", "%04s|%05c|%p|%-+#.3p", "ef", 'g', 0L, 16L);
  prints("  \u00E9\u4E2D|\u00E9|\u07FF\u0800\U00010000", "%7ls|%.4ls|%ls", L"\u00E9\u4E2D", L"\u00E9\u4E2D",
         L"\u07FF\u0800\U00010000");
  prints("(null)|%y|%y5|%$d", "%@|%5.2y|%*y%d|%1$d", nullptr, 99, 5);
}

GUEST_TEST(a_piece_ends_after_511_characters_and_a_text_where_its_buffer_does) {
  static char text[700], small[8];
  CHECK(snprintf(text, sizeof text, "%0600d|%-600d|", 7, 7) == 1024 && text[510] == '0' && text[512] == '7');
  CHECK(snprintf(text, sizeof text, "%600s|", "x") == 601 && same(text + 599, "x|"));
  for (uint64 size = 0; size <= sizeof small; ++size) {
    memset(small, '?', sizeof small);
    CHECK(snprintf(small, size, "%d%s", 12, "velmora") == 9 && (size == sizeof small || small[size] == '?'));
    CHECK(memcmp(small, "12velmora", size - (size > 0)) == 0 && (size == 0 || small[size - 1] == 0));
  }
  int64 counts[] = {-1, -1, -1, -1};
  CHECK(snprintf(small, 2, "abc%n%ln%hn%hhn", counts, counts + 1, counts + 2, counts + 3) == 3 && counts[1] == 3);
  CHECK(counts[0] == ~0xFFFFFFFFL + 3 && counts[2] == ~0xFFFFL + 3 && counts[3] == ~0xFFL + 3);
}

GUEST_TEST(text_is_scanned_as_on_macos) {
  // The longest number; an unfinished tail stays.
  scans("1.5em -2.e-", "%f%s%lf%s", 4, 1.5f, "em", -2.0, "e-");
  scans("nan(_ nan(1_)", "%*f%s%*lf%n", 1, "(_", 13);
  scans("0x1.8p 0x.g 0x1.8p1", "%f%s%f%s%Lf", 5, 1.5f, "p", 0.0f, "x.g", 3.0L);
  scans("1e400 1e-400 -1e39", "%lf%lf%f", 3, double{infinite}, 0.0, -infinite);
  scans("0xyz 0x1f 300 0x1000", "%i%s%2x%s%hhu%p", 6, 0, "xyz", 0, "x1f", uint8{44}, 0x1000L);
  scans("99999999999999999999 -99999999999999999999", "%qd%jd", 2, ~(1L << 63), 1L << 63);
  scans("ab", "%5c%d", 1, static_cast<short>('b' << 8 | 'a'));
  scans("abcabc-09", "%4[a-c]%*2[^d]%[9-0]%n", 2, "abca", "-09", 9);
  scans("h\u00E9llo \u4E2D", "%ls%S", 2, L"h\u00E9llo", L"\u4E2D");
  scans("123", "%d%hhn%hn%n%ln", 1, 123, uint8{3}, static_cast<short>(3), 3, 3L);
}

GUEST_TEST(a_stream_gets_all_of_a_text_and_its_length_is_told_anyway) {
  static char part[2000], read[5000];
  memset(part, 'x', 1999);
  FILE* const file = fopen(scratch, "w+b");
  CHECK(fprintf(file, "%s|%d|%s", part, 42, part) == 4002 && fseek(file, 0, SEEK_SET) == 0);
  CHECK(fread(read, 1, sizeof read, file) == 4002 && memcmp(read, part, 1999) == 0 && same(read + 2003, part));
  CHECK(fclose(file) == 0);
  CHECK(fwrite("printed\n", 1, 8, stdout) == 8 && fflush(stdout) == 0 && fprintf(stderr, "%d: %s\n", 1, "short") == 9);
  CHECK(fprintf(stdin, "%d: %s\n", 1, "nobody reads it") == 19);
}

GUEST_TEST(threads_and_descriptors_that_append_lose_nothing) {
  constexpr int64 records = 2000, writers = 4;
  unlink(scratch);
  run_on_threads(writers, [](int64 own) {
    const int32 file = open(scratch, O_WRONLY | O_APPEND | O_CREAT, 0666);
    for (int64 record[2] = {own}; record[1] < records; ++record[1]) CHECK(write(file, record, 16) == 16);
    close(file);
  });
  const int32 file = open(scratch, O_RDWR | O_APPEND);
  int64 record[2], next[writers] = {}, count = 0;
  while (read(file, record, 16) == 16 && record[0] < writers) count += record[1] == next[record[0]]++;
  CHECK(count == records * writers && lseek(file, 8, SEEK_SET) == 8 && write(file, "end", 3) == 3);
  CHECK(lseek(file, 0, SEEK_CUR) == count * 16 + 3 && close(file) == 0 && unlink(scratch) == 0);
}

GUEST_TEST(a_thread_of_the_game_computes_with_64_bits) {
  run_on_threads(1, [](int64) {
    volatile long double small = 0x1p-63L;
    CHECK(1 + small != 1);
  });
}

GUEST_TEST(pairs_come_back_in_registers) {
  const auto doubles = __sincos_stret(2.5);
  const auto floats = __sincosf_stret(2.5f);
  CHECK(__real__ doubles == sin(2.5) && __imag__ doubles == cos(2.5));
  CHECK(static_cast<int32>(__real__ floats * 1e5f) == 59847 && static_cast<int32>(__imag__ floats * 1e5f) == -80114);
}

GUEST_TEST(a_copy_is_cut_at_its_size) {
  for (uint64 size = 0; size < 6; ++size) {
    char buffer[9] = "........";
    CHECK(strlcpy(buffer, "abc", size) == 3 && memcmp(buffer, "abc", size > 3 ? 4 : size - (size > 0)) == 0);
    CHECK((size == 0 || buffer[size < 4 ? size - 1 : 3] == 0) && buffer[size < 4 ? size : 4] == '.');
  }
}

GUEST_TEST(character_classes_as_the_macros_of_macos_read_them) {
  static const struct {
    int32 c;
    uint32 classes;
    int32 lower, upper;
  } rows[] = {{' ', 0x40064000, ' ', ' '}, {'9', 0x40050C09, '9', '9'}, {'A', 0x4005890A, 'a', 'A'},
              {'f', 0x4005190F, 'f', 'F'}, {'!', 0x40042800, '!', '!'}, {255, 0, 255, 255}};
  for (const auto& row : rows) {
    const auto entry = [&](int64 table) {
      return *reinterpret_cast<const int32*>(_DefaultRuneLocale + table + 4 * row.c);
    };
    CHECK(entry(60) == (int32)row.classes && __maskrune(row.c, 0xFFFFFFFF) == (int32)row.classes);
    CHECK(entry(1084) == row.lower && __tolower(row.c) == row.lower && entry(2108) == row.upper);
  }
  CHECK(__maskrune(-1, 0xFFFFFFFF) == 0 && __maskrune(256, 0xFFFFFFFF) == 0 && __tolower(-1) == -1);
  CHECK(same(setlocale(0, nullptr), "C") && same(setlocale(1, "de_DE.UTF-8"), "C"));
  void* const locale = newlocale(0x3F, "C", nullptr);
  CHECK(locale != nullptr && newlocale(0x3F, "fr_FR", locale) == locale && freelocale(locale) == 0);
}

GUEST_TEST(error_numbers_have_the_texts_of_macos) {
  const auto has_text = [](int32 error, uint64 size, const char* expected) {
    char buffer[64] = "....";
    return strerror_r(error, buffer, size) == 0 && same(buffer, expected);
  };
  CHECK(has_text(2, 64, "No such file or directory") && has_text(2, 5, "No s") && has_text(13, 0, "...."));
  CHECK(has_text(0, 64, "Undefined error: 0") && has_text(35, 64, "Resource temporarily unavailable"));
  CHECK(has_text(60, 64, "Unknown error"));
}
