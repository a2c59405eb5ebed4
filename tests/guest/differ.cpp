// What the C library answers to generated input: formatted and scanned text, mathematics, memory, texts, sorting, the
// calendar. One program, compiled twice: for a Mac it prints its answers, for this machine it compares them with its
// own.
//
//   host differ_guest.dylib print_answers | differ
//
// Equal means to the letter; results of mathematics may be a unit in the last place apart. Input that macOS answers in
// a way of its own is not generated; the tests of formats, numbers and mathematics have rows of that.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#ifdef __APPLE__
#define exp10f __exp10f
#endif

// Not <math.h>, which makes overloads of them. Each once more below, to be called by its name.
// clang-format off
extern "C" {
double acos(double), asin(double), atan(double), cos(double), sin(double), tan(double), exp(double), log(double), log10(double), log2(double), logb(double);
double atan2(double, double), fmod(double, double), hypot(double, double), pow(double, double), scalbn(double, int), modf(double, double*);
float acosf(float), asinf(float), atanf(float), cosf(float), sinf(float), tanf(float), expf(float), logf(float), log10f(float), exp2f(float), exp10f(float);
float atan2f(float, float), fmodf(float, float), powf(float, float), ldexpf(float, int);
}
#define FUNCTIONS(X) X(acos) X(asin) X(atan) X(cos) X(sin) X(tan) X(exp) X(log) X(log10) X(log2) X(logb) X(atan2) X(fmod) X(hypot) X(pow) \
  X(acosf) X(asinf) X(atanf) X(cosf) X(sinf) X(tanf) X(expf) X(logf) X(log10f) X(exp2f) X(exp10f) X(atan2f) X(fmodf) X(powf) X(whole_part) X(fraction_of) \
  X(scale) X(scale_float)
constexpr double special[] = {0, 1, 0.5, 2, 10, 1e22, 0x1p-1074, 0x1p-1022, 0x1.fffffffffffffp1023, 0x1p53, 0.1, 1e5, 0x1.921fb54442d18p+0,
                              745.2, 709.8, 1e4, 88.8, 103.9, 0x1p127, 0x1p-149, __builtin_inf(), __builtin_nan("")};
constexpr const char* scanned[] = {"%d", "%i", "%u", "%x", "%o", "%ld", "%hhd", "%hx", "%lli", "%4d", "%3x", "%f", "%lf", "%Lf", "%s", "%3s",
                                   "%[a-z0-9]", "%5[-.0-9]", "%c", "%2c", "%*d", "%*s", "%n", " ", ",", "x", "%%", "%p"};
constexpr const char* times[] = {"%A %a %B %b %C %c %D %d", "%e %F %G %g %H %I %j %k", "%l %M %m %p %R %r", "%S %T %t %U %u %V %W %w",
                                 "%X %x %Y %y %% %Ey %Od %h %z"};
// clang-format on

namespace {

using Bits = unsigned long;

// ---- Lines ---------------------------------------------------------------------------------------------------------

int different = 0;

/// "m name arguments result" is mathematics: the results may be neighbours.
[[maybe_unused]] bool agree(const char* mine, const char* theirs) {
  if (strcmp(mine, theirs) == 0) return true;
  const char* const result = strrchr(mine, ' ');
  if (mine[0] != 'm' || strncmp(mine, theirs, result - mine) != 0) return false;
  const Bits distance = strtoul(result, nullptr, 16) - strtoul(theirs + (result - mine), nullptr, 16);
  return distance + 1 <= 2;
}

void put(const char* format, ...) {
  char line[2000];
  va_list list;
  va_start(list, format);
  vsnprintf(line, sizeof line, format, list);
  va_end(list);
#ifdef __APPLE__
  fprintf(stdout, "%s\n", line);
#else
  char theirs[2000] = "";
  if (fgets(theirs, sizeof theirs, stdin) != nullptr) theirs[strlen(theirs) - 1] = 0;
  if (!agree(line, theirs) && ++different <= 20) printf("expected: %s\nfound:    %s\n", line, theirs);
#endif
}

// ---- Input ---------------------------------------------------------------------------------------------------------

Bits random_bits() {
  static Bits state = 0x9E3779B97F4A7C15;
  state ^= state << 13;
  state ^= state >> 7;
  state ^= state << 17;
  return state * 0x2545F4914F6CDD1D;
}
int below(int limit) { return static_cast<int>(random_bits() >> 33) % limit; }
Bits some_integer() { return random_bits() >> below(64); }
template <class T, int count>
T one_of(const T (&list)[count]) {
  return list[below(count)];
}

double some_double() {
  const double sign = below(2) ? -1 : 1, fraction = static_cast<double>(random_bits() >> 11) * 0x1p-53;
  const double choices[] = {sign * one_of(special),     __builtin_bit_cast(double, random_bits()),
                            sign * fraction * 1000,     sign * static_cast<double>(some_integer()),
                            1 + sign * fraction / 1024, sign * below(1000) * 0x1.921fb54442d18p+0};
  return one_of(choices);
}

/// A text of up to `longest` characters of the alphabet.
const char* some_text(char* text, int longest, const char* alphabet) {
  const int length = below(longest + 1), letters = static_cast<int>(strlen(alphabet));
  for (int i = 0; i < length; ++i) text[i] = alphabet[below(letters)];
  text[length] = 0;
  return text;
}

Bits sum_of(const void* bytes, size_t size) {
  Bits sum = 0xcbf29ce484222325;
  for (size_t i = 0; i < size; ++i) sum = (sum ^ static_cast<const unsigned char*>(bytes)[i]) * 0x100000001b3;
  return sum;
}

// ---- Answers -------------------------------------------------------------------------------------------------------

void format_texts() {
  char flags[8], middle[16], format[40], text[40], out[700];
  for (int i = 0; i < 40000; ++i) {
    const char conversion = "diuoxXcsdiuxeEfFgGaAfge"[below(23)];
    const bool is_text = conversion == 'c' || conversion == 's', is_float = strchr("eEfFgGaA", conversion) != nullptr;
    const bool stars = below(8) == 0, is_long = is_float && (conversion | 32) != 'a' && below(8) == 0;
    some_text(flags, 3, is_text ? "-" : "-+ #0");
    snprintf(middle, sizeof middle, one_of({"%d", "%d.%d", ".%d", ""}), below(50) + 1, below(below(9) ? 24 : 190));
    const char* const length = is_long ? "L" : is_text || is_float ? "" : one_of({"", "l", "ll", "h", "hh", "j", "z"});
    snprintf(format, sizeof format, "%%%s%s%s%c", flags, stars ? "*.*" : middle, length, conversion);
    const size_t size = below(8) ? sizeof out : below(12);
    const int width = below(40) - 20, precision = below(30) - 2;
    const auto print = [&](auto value) {
      out[0] = 0;
      const int found =
          stars ? snprintf(out, size, format, width, precision, value) : snprintf(out, size, format, value);
      put("%s %d %d %d <%s>", format, width, precision, found, out);
    };
    const double number = some_double(), value = number * number > 1e-300 ? number : 0.5;  // macOS has its own NaN,
    if (is_long) print(static_cast<long double>(value));                                   // and subnormal %a
    if (is_float && !is_long) print(value);
    if (conversion == 's') print(some_text(text, 30, "abc %"));
    if (!is_float && conversion != 's')
      print(conversion == 'c' ? Bits(below(94)) + 33 : some_integer() * (below(2) ? -1UL : 1));
  }
}

void scan_texts() {
  for (int i = 0; i < 25000; ++i) {
    char input[100] = "", format[60] = "";
    some_text(input, 40, one_of({"0123456789 -,", "12 34 x+-.", "19afd 7,", "xyzbcg 1,%"}));
    memcpy(input, one_of({"0x7", "-07", "+12", "0.5", " ab"}), 3);
    for (int part = below(5) + 1; part > 0; --part) strcpy(format + strlen(format), one_of(scanned));
    unsigned char places[5][64];
    memset(places, '?', sizeof places);
    const int stored = sscanf(input, format, places[0], places[1], places[2], places[3], places[4]);
    put("<%s> <%s> %d %016lx", input, format, stored, sum_of(places, sizeof places));
  }
}

void convert_texts() {
  for (int i = 0; i < 10000; ++i) {
    char text[40], *end, *unsigned_end;
    some_text(text, 24, one_of({"0123456789", "0123456789abcdefxXz", " -+0x19"}));
    const int base = below(3) ? one_of({0, 10, 16}) : below(35) + 2;
    errno = 0;
    const long number = strtol(text, &end, base);
    const bool in_range = errno != ERANGE;
    const Bits unsigned_number = strtoul(text, &unsigned_end, base);
    const div_t parts = div(static_cast<int>(number), base + 1);
    put("<%s> %d %ld %ld %d %lu %ld %d %d %ld %d %d", text, base, number, end - text, in_range, unsigned_number,
        unsigned_end - text, errno == ERANGE, in_range ? atoi(text) : 0, atol(text), parts.quot, parts.rem);
  }
}

/// The result as bits; every NaN is one.
template <class T, class... More>
void evaluate(const char* name, T (*function)(T, More...)) {
  for (int i = 0; i < 1500; ++i) {
    const auto x = static_cast<T>(some_double());
    const auto y = static_cast<T>(some_double());
    const T result = function(x, static_cast<More>(y)...);
    Bits bits = 0;
    memcpy(&bits, &result, sizeof result);
    put("m %s %.9g %.9g %016lx", name, x == x ? x : 0, y == y ? y : 0, result == result ? bits : 0);
  }
}

double whole_part(double x) { return modf(x, &x), x; }
double fraction_of(double x) { return modf(x, &x); }
double scale(double x, double n) { return scalbn(x, n > -3000 && n < 3000 ? static_cast<int>(n) : 77777); }
float scale_float(float x, float n) { return ldexpf(x, n > -300 && n < 300 ? static_cast<int>(n) : -77777); }

void calculate() {
#define EVALUATE(name) evaluate(#name, &name);
  FUNCTIONS(EVALUATE)
}

int sign_of(int value) { return (value > 0) - (value < 0); }
long offset(const char* in, const void* found) { return found ? static_cast<const char*>(found) - in : -1; }

void handle_bytes() {
  static char block[1400], other[1400];
  for (int i = 0; i < 12000; ++i) {
    const int from = below(300), to = below(300), c = below(4) + 'a';
    const size_t size = below(below(2) ? 24 : 900);
    if (i % 50 == 0) some_text(block, 1300, "abcd\xE9");
    memcpy(other, block, sizeof other);
    memmove(other + to, other + from, size);
    memset(other + below(900), c, size / 4);
    put("%016lx %d %ld", sum_of(other, sizeof other), sign_of(memcmp(block + from, other + to, size)),
        offset(block, memchr(block + from, c, size)));
    char text[60], part[60], copy[60] = "";
    some_text(text, 50, "aab\xE9");
    some_text(part, below(4) ? 3 : 50, "aab\xE9");
    strncpy(copy, text, below(60));
    put("<%s> <%s> %ld %d %d %ld %ld %ld %016lx", text, part, strlen(text), sign_of(strcmp(text, part)),
        sign_of(strncmp(text, part, size % 8)), offset(text, strchr(text, *part)), offset(text, strrchr(text, 'b')),
        offset(text, strstr(text, part)), sum_of(copy, sizeof copy));
  }
}

size_t element_size;
int compare_elements(const void* a, const void* b) { return memcmp(a, b, element_size); }

void sort_elements() {
  char elements[4000];
  for (int i = 0; i < 1500; ++i) {
    element_size = below(i % 9 ? 24 : 200) + 1;
    const size_t count = random_bits() % (sizeof elements / element_size);
    for (char& byte : elements) byte = below(i % 2 ? 4 : 256);
    char key[200];
    memcpy(key, elements, sizeof key);
    qsort(elements, count, element_size, compare_elements);
    const void* const found = bsearch(key, elements, count, element_size, compare_elements);
    put("%016lx %d", sum_of(elements, sizeof elements), found != nullptr && memcmp(found, key, element_size) == 0);
  }
}

void tell_times() {
  setenv("TZ", "UTC0", 1);
  for (int i = 0; i < 3000; ++i) {
    const time_t time = static_cast<time_t>(random_bits() % (below(4) ? 4'200'000'000 : 32'000'000'000));
    tm fields = *gmtime(&time);
    char text[300];
    strftime(text, sizeof text, one_of(times), &fields);
    put("%ld %d %d %d %s", time, fields.tm_wday, fields.tm_yday, fields.tm_isdst, text);
    fields.tm_mon += below(40);
    fields.tm_mday += below(800) - 300;
    fields.tm_hour += below(200);
    fields.tm_sec += below(200000);
    if (fields.tm_year > 72) put("%ld %d %d", mktime(&fields), fields.tm_yday, fields.tm_hour);
  }
}

}  // namespace

#ifdef __APPLE__
extern "C" int il2cpp_init(const char*) { return 0; }
extern "C" long print_answers()
#else
int main()
#endif
{
  format_texts();
  scan_texts();
  convert_texts();
  calculate();
  handle_bytes();
  sort_elements();
  tell_times();
  return different != 0;
}
