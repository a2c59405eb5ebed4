// Mathematics and integer division. Expected values are correctly rounded from 300 bits (computed with mpmath); a
// result may be one unit in the last place away from them. Where C defines the result, it must be that very value.
#include "guest_test.h"

extern "C" {
double acos(double), asin(double), atan(double), cos(double), sin(double), tan(double);
double exp(double), log(double), log10(double), log2(double), logb(double);
double atan2(double, double), fmod(double, double), hypot(double, double), pow(double, double);
double scalbn(double, int32), modf(double, double*);
float acosf(float), asinf(float), atanf(float), cosf(float), sinf(float), tanf(float);
float expf(float), exp2f(float), __exp10f(float), logf(float), log10f(float);
float atan2f(float, float), fmodf(float, float), powf(float, float), ldexpf(float, int32);
struct SineCosine {
  double sine, cosine;
};
SineCosine __sincos_stret(double);
struct SineCosineFloat {
  float sine, cosine;
};
SineCosineFloat __sincosf_stret(float);
struct Quotient {
  int32 quot, rem;
};
Quotient div(int32, int32);
}

namespace {

constexpr double inf = __builtin_inf();
constexpr double nan = __builtin_nan("");

/// Steps between two values among all values of the type; a NaN is no step away from another NaN.
int64 steps(double a, double b) {
  if (a != a || b != b) return a != a && b != b ? 0 : 1 << 30;
  int64 bits[2] = {__builtin_bit_cast(int64, a), __builtin_bit_cast(int64, b)};
  for (int64& value : bits) {
    if (value < 0) value = static_cast<int64>(0x8000000000000000) - value - 1;  // -0.0 is a value of its own
  }
  return bits[0] > bits[1] ? bits[0] - bits[1] : bits[1] - bits[0];
}
int64 steps(float a, float b) {
  if (a != a || b != b) return a != a && b != b ? 0 : 1 << 30;
  int32 bits[2] = {__builtin_bit_cast(int32, a), __builtin_bit_cast(int32, b)};
  for (int32& value : bits) {
    if (value < 0) value = static_cast<int32>(0x80000000) - value - 1;
  }
  return bits[0] > bits[1] ? int64{bits[0]} - bits[1] : int64{bits[1]} - bits[0];
}

template <class T>
struct Unary {
  const char* text;
  T (*function)(T);
  T x, expected;
};
template <class T>
struct Binary {
  const char* text;
  T (*function)(T, T);
  T x, y, expected;
};
#define UNARY(function, x, expected) {#function "(" #x ") is " #expected, function, x, expected}
#define BINARY(function, x, y, expected) {#function "(" #x ", " #y ") is " #expected, function, x, y, expected}

template <class T, uint64 N>
void check_rows(const Unary<T> (&rows)[N], int64 tolerance) {
  for (const auto& row : rows) {
    guest_test::check(steps(row.function(row.x), row.expected) <= tolerance, __FILE_NAME__, __LINE__, row.text);
  }
}
template <class T, uint64 N>
void check_rows(const Binary<T> (&rows)[N], int64 tolerance) {
  for (const auto& row : rows) {
    guest_test::check(steps(row.function(row.x, row.y), row.expected) <= tolerance, __FILE_NAME__, __LINE__, row.text);
  }
}

}  // namespace

GUEST_TEST(doubles_are_right_to_the_last_place) {
  // Among them what a reduction with too few digits of pi gets wrong.
  static const Unary<double> unary[] = {
      UNARY(acos, -0x1.ff7ced916872bp-1, 0x1.8c66280ae928ep+1),
      UNARY(acos, 0x1.12e0be826d695p-30, 0x1.921fb53ff74e9p+0),
      UNARY(asin, 0x1.6666666666666p-1, 0x1.8d00e692afd95p-1),
      UNARY(asin, 0x1.12e0be826d695p-30, 0x1.12e0be826d695p-30),
      UNARY(atan, 0x1.2a05f2p+33, 0x1.921fb543d4de0p+0),
      UNARY(atan, -0x1.3333333333333p-2, -0x1.2a73a661eaf06p-2),
      UNARY(cos, 0x1.0f0cf064dd592p+73, 0x1.0be2cef01c8f4p-1),  UNARY(cos, 0x1.921fb54442d18p+0, 0x1.1a62633145c07p-54),
      UNARY(sin, 0x1.0f0cf064dd592p+73, -0x1.b453ab76bf397p-1), UNARY(sin, 0x1.921fb54442d18p+1, 0x1.1a62633145c07p-53),
      UNARY(tan, 0x1.921fb54442d18p+0, 0x1.d02967c31cdb5p+53),
      UNARY(tan, -0x1.199999999999ap+0, -0x1.f6fa7d286214ep+0),
      UNARY(exp, 0x1p+0, 0x1.5bf0a8b145769p+1),                 UNARY(exp, -0x1.744p+9, 0x0.0000000000001p-1022),
      UNARY(exp, 0x1.62d999999999ap+9, 0x1.d75ae7a50ee14p+1023),
      UNARY(log, 0x1.000000006df38p+0, 0x1.b7cdffffa18d8p-34),
      UNARY(log, 0x0.0000000000001p-1022, -0x1.74385446d71c3p+9), UNARY(log10, 0x1p+1, 0x1.34413509f79ffp-2),
      UNARY(log2, 0x1.8p+1, 0x1.95c01a39fbd68p+0),
      UNARY(log2, 0x1.ffffffff24190p-1, -0x1.3d40846fcc564p-33),
  };
  check_rows(unary, 1);
  static const Binary<double> binary[] = {
      BINARY(atan2, 0x1p+0, -0x1.8p+1, 0x1.68f095fdf593cp+1),
      BINARY(atan2, -0x1.4p+2, 0x1.79ca10c924223p-67, -0x1.921fb54442d18p+0),
      BINARY(pow, 0x1.000001ad7f29bp+0, 0x1.312dp+23, 0x1.5bf0a790ce6f2p+1),
      BINARY(pow, 0x1.4p+3, -0x1.36p+8, 0x0.012688b70e62bp-1022),
      BINARY(pow, 0x1.3333333333333p-2, 0x1.2c2p+9, 0x0.00000a7500527p-1022),
      BINARY(hypot, 0x1.1eb2d66005835p+998, 0x1.7e43c8800759cp+998, 0x1.ddd4baa009303p+998),
      BINARY(hypot, 0x1p+0, 0x1.4f8b588e368f1p-17, 0x1.0000000036f9cp+0),
  };
  check_rows(binary, 1);
}

GUEST_TEST(floats_are_right_to_the_last_place) {
  static const Unary<float> unary[] = {
      UNARY(acosf, -0x1.ff7ceep-1f, 0x1.8c662ap+1f), UNARY(asinf, 0x1.666666p-1f, 0x1.8d00e6p-1f),
      UNARY(atanf, 0x1.2a05f2p+33f, 0x1.921fb6p+0f), UNARY(atanf, -0x1.333334p-2f, -0x1.2a73a8p-2f),
      UNARY(cosf, 0x1.0f0cf0p+73f, 0x1.5badeep-1f),  UNARY(sinf, 0x1.921fb6p+1f, -0x1.777a5cp-24f),
      UNARY(sinf, 0x1.0f0cf0p+73f, -0x1.77d988p-1f), UNARY(tanf, 0x1.921fb6p+0f, -0x1.5d1494p+24f),
      UNARY(expf, 0x1.6p+6f, 0x1.f1056ep+126f),      UNARY(expf, -0x1.9p+6f, 0x1.bp-145f),
      UNARY(exp2f, 0x1p-1f, 0x1.6a09e6p+0f),         UNARY(exp2f, -0x1.fap+6f, 0x1.6a09e8p-127f),
      UNARY(__exp10f, -0x1.8p+1f, 0x1.0624dep-10f),  UNARY(__exp10f, 0x1.34p+5f, 0x1.dbce82p+127f),
      UNARY(logf, 0x1.000002p+0f, 0x1.fffffep-24f),  UNARY(logf, 0x1p-149f, -0x1.9d1da0p+6f),
      UNARY(log10f, 0x1p+1f, 0x1.344136p-2f),        UNARY(log10f, 0x1p-149f, -0x1.66d3e8p+5f),
  };
  check_rows(unary, 1);
  static const Binary<float> binary[] = {
      BINARY(atan2f, 0x1p+0f, -0x1.8p+1f, 0x1.68f096p+1f),
      BINARY(powf, 0x1.00068ep+0f, 0x1.388p+13f, 0x1.5bfafcp+1f),
      BINARY(powf, 0x1.4p+3f, -0x1.4p+5f, 0x1.16c2p-133f),
  };
  check_rows(binary, 1);
}

GUEST_TEST(what_c_defines_is_exact) {
  static const Unary<double> unary[] = {
      UNARY(log10, 1000.0, 3.0), UNARY(log10, 0.0, -inf),   UNARY(log, -1.0, nan),  UNARY(log, 1.0, 0.0),
      UNARY(log2, 536870912.0, 29.0), UNARY(log2, 0x1p-1074, -1074.0), UNARY(log2, -0.0, -inf), UNARY(log2, -1.0, nan),
      UNARY(log2, inf, inf),     UNARY(logb, 0x1p-1074, -1074.0), UNARY(logb, -12.0, 3.0), UNARY(logb, 0.0, -inf),
      UNARY(logb, -inf, inf),    UNARY(logb, nan, nan),     UNARY(exp, -inf, 0.0),  UNARY(exp, 710.0, inf),
      UNARY(sin, -0.0, -0.0),    UNARY(sin, inf, nan),      UNARY(cos, 0.0, 1.0),   UNARY(tan, -0.0, -0.0),
      UNARY(acos, 1.0, 0.0), UNARY(acos, 1.5, nan),
      UNARY(asin, -0.0, -0.0), UNARY(atan, -inf, -0x1.921fb54442d18p+0),
  };
  check_rows(unary, 0);
  static const Unary<float> unary_floats[] = {
      UNARY(exp2f, -149.0f, 0x1p-149f),       UNARY(exp2f, 128.0f, static_cast<float>(inf)),
      UNARY(exp2f, static_cast<float>(-inf), 0.0f), UNARY(exp2f, 10.0f, 1024.0f),
      UNARY(__exp10f, 2.0f, 100.0f),          UNARY(sinf, -0.0f, -0.0f),
      UNARY(log10f, 100.0f, 2.0f),            UNARY(asinf, 2.0f, static_cast<float>(nan)),
  };
  check_rows(unary_floats, 0);
  static const Binary<double> binary[] = {
      BINARY(pow, 1.0, nan, 1.0),        BINARY(pow, nan, -0.0, 1.0),      BINARY(pow, -1.0, -inf, 1.0),
      BINARY(pow, -0.0, -3.0, -inf),     BINARY(pow, -8.0, 1.0 / 3, nan),  BINARY(pow, 0.5, -inf, inf),
      BINARY(pow, -2.0, 3.0, -8.0),      BINARY(fmod, 1.0, inf, 1.0),      BINARY(fmod, inf, 1.0, nan),
      BINARY(fmod, 1.0, 0.0, nan),       BINARY(fmod, -4.0, 2.0, -0.0),    BINARY(fmod, -5.5, 2.0, -1.5),
      BINARY(fmod, 1e300, 7.0, 1.0),     BINARY(fmod, 1e300, 0x1.921fb54442d18p+1, 0x1.358676425a468p+1),
      BINARY(hypot, nan, -inf, inf),     BINARY(hypot, nan, 1.0, nan),     BINARY(hypot, -3.0, 4.0, 5.0),
      BINARY(hypot, 0x1p-1074, 0.0, 0x1p-1074), BINARY(atan2, 0x1p-997, 0x1p+997, 0.0),
      BINARY(atan2, -0.0, -1.0, -0x1.921fb54442d18p+1), BINARY(atan2, 0.0, -0.0, 0x1.921fb54442d18p+1),
      BINARY(atan2, inf, -inf, 0x1.2d97c7f3321d2p+1),
  };
  check_rows(binary, 0);
  static const Binary<float> binary_floats[] = {
      BINARY(powf, -1.0f, static_cast<float>(inf), 1.0f), BINARY(powf, static_cast<float>(nan), 0.0f, 1.0f),
      BINARY(powf, -2.0f, 5.0f, -32.0f),                  BINARY(fmodf, -5.5f, 2.0f, -1.5f),
      BINARY(fmodf, 1e38f, 7.0f, 2.0f),                   BINARY(atan2f, -0.0f, -1.0f, -0x1.921fb6p+1f),
  };
  check_rows(binary_floats, 0);
}

GUEST_TEST(a_value_splits_into_whole_and_fraction) {
  static const struct {
    double x, whole, fraction;
  } rows[] = {{3.75, 3, 0.75}, {-3, -3, -0.0},     {-0.5, -0.0, -0.5},         {-0.0, -0.0, -0.0},
              {inf, inf, 0},   {-inf, -inf, -0.0}, {-1e300, -1e300, -0.0},     {nan, nan, nan},
              {0x1.fffffffffffffp+51, 0x1.ffffffffffffep+51, 0.5}};
  for (const auto& row : rows) {
    double whole;
    const double fraction = modf(row.x, &whole);
    CHECK(steps(fraction, row.fraction) == 0);
    CHECK(steps(whole, row.whole) == 0);
  }
}

GUEST_TEST(scaling_rounds_once) {
  static const struct {
    double x;
    int32 n;
    double expected;
  } doubles[] = {{0x1.8p0, -1075, 0x1p-1074}, {0x1p-1074, 1074, 1}, {1, 2147483647, inf},
                 {-1, -2147483647 - 1, -0.0}, {-0.0, 5, -0.0},      {inf, -5, inf}};
  for (const auto& row : doubles) CHECK(steps(scalbn(row.x, row.n), row.expected) == 0);
  static const struct {
    float x;
    int32 n;
    float expected;
  } floats[] = {{0.75f, 3, 6}, {0x1.8p0f, -149, 0x1p-148f}, {1, 128, static_cast<float>(inf)}, {-0.0f, 9, -0.0f}};
  for (const auto& row : floats) CHECK(steps(ldexpf(row.x, row.n), row.expected) == 0);
}

GUEST_TEST(pairs_come_back_in_registers) {
  const SineCosine doubles = __sincos_stret(2.5);
  CHECK(steps(doubles.sine, 0x1.326af0dcfcab1p-1) <= 1 && steps(doubles.cosine, -0x1.9a2f7ef858b7dp-1) <= 1);
  const SineCosineFloat floats = __sincosf_stret(2.5f);
  CHECK(steps(floats.sine, 0x1.326af0p-1f) <= 1 && steps(floats.cosine, -0x1.9a2f7ep-1f) <= 1);
  const Quotient quotient = div(-7, 2);
  CHECK(quotient.quot == -3 && quotient.rem == -1);
}
