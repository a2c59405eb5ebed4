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
constexpr float infinite = __builtin_inff();
constexpr double nan = __builtin_nan("");

/// Steps between two values among all values of the type; a NaN is no step away from another NaN.
template <class T, class Bits>
int64 steps(T a, T b) {
  if (a != a || b != b) return a != a && b != b ? 0 : 1 << 30;
  Bits bits[2] = {__builtin_bit_cast(Bits, a), __builtin_bit_cast(Bits, b)};
  for (Bits& value : bits) {
    if (value < 0) value = static_cast<Bits>(uint64{1} << (8 * sizeof value - 1)) - value - 1;  // -0.0 is one too
  }
  return bits[0] > bits[1] ? int64{bits[0]} - bits[1] : int64{bits[1]} - bits[0];
}
int64 steps(double a, double b) { return steps<double, int64>(a, b); }
int64 steps(float a, float b) { return steps<float, int32>(a, b); }

template <class T>
struct Result {
  const char* text;
  T found, expected;
};
#define RESULT(call, expected) {#call " is " #expected, call, expected}

template <class T, uint64 N>
void check_results(int64 tolerance, const Result<T> (&results)[N]) {
  for (const auto& result : results) {
    guest_test::check(steps(result.found, result.expected) <= tolerance, __FILE_NAME__, __LINE__, result.text);
  }
}

}  // namespace

GUEST_TEST(doubles_are_right_to_the_last_place) {
  // Among them what a reduction with too few digits of pi gets wrong.
  check_results<double>(1, {
                               RESULT(acos(-0x1.ff7ced916872bp-1), 0x1.8c66280ae928ep+1),
                               RESULT(acos(0x1.12e0be826d695p-30), 0x1.921fb53ff74e9p+0),
                               RESULT(asin(0x1.6666666666666p-1), 0x1.8d00e692afd95p-1),
                               RESULT(asin(0x1.12e0be826d695p-30), 0x1.12e0be826d695p-30),
                               RESULT(atan(0x1.2a05f2p+33), 0x1.921fb543d4de0p+0),
                               RESULT(atan(-0x1.3333333333333p-2), -0x1.2a73a661eaf06p-2),
                               RESULT(cos(0x1.0f0cf064dd592p+73), 0x1.0be2cef01c8f4p-1),
                               RESULT(cos(0x1.921fb54442d18p+0), 0x1.1a62633145c07p-54),
                               RESULT(sin(0x1.0f0cf064dd592p+73), -0x1.b453ab76bf397p-1),
                               RESULT(sin(0x1.921fb54442d18p+1), 0x1.1a62633145c07p-53),
                               RESULT(tan(0x1.921fb54442d18p+0), 0x1.d02967c31cdb5p+53),
                               RESULT(tan(-0x1.199999999999ap+0), -0x1.f6fa7d286214ep+0),
                               RESULT(exp(0x1p+0), 0x1.5bf0a8b145769p+1),
                               RESULT(exp(-0x1.744p+9), 0x0.0000000000001p-1022),
                               RESULT(exp(0x1.62d999999999ap+9), 0x1.d75ae7a50ee14p+1023),
                               RESULT(log(0x1.000000006df38p+0), 0x1.b7cdffffa18d8p-34),
                               RESULT(log(0x0.0000000000001p-1022), -0x1.74385446d71c3p+9),
                               RESULT(log10(0x1p+1), 0x1.34413509f79ffp-2),
                               RESULT(log2(0x1.8p+1), 0x1.95c01a39fbd68p+0),
                               RESULT(log2(0x1.ffffffff24190p-1), -0x1.3d40846fcc564p-33),
                               RESULT(atan2(0x1p+0, -0x1.8p+1), 0x1.68f095fdf593cp+1),
                               RESULT(atan2(-0x1.4p+2, 0x1.79ca10c924223p-67), -0x1.921fb54442d18p+0),
                               RESULT(pow(0x1.000001ad7f29bp+0, 0x1.312dp+23), 0x1.5bf0a790ce6f2p+1),
                               RESULT(pow(0x1.4p+3, -0x1.36p+8), 0x0.012688b70e62bp-1022),
                               RESULT(pow(0x1.3333333333333p-2, 0x1.2c2p+9), 0x0.00000a7500527p-1022),
                               RESULT(hypot(0x1.1eb2d66005835p+998, 0x1.7e43c8800759cp+998), 0x1.ddd4baa009303p+998),
                               RESULT(hypot(0x1p+0, 0x1.4f8b588e368f1p-17), 0x1.0000000036f9cp+0),
                           });
}

GUEST_TEST(floats_are_right_to_the_last_place) {
  check_results<float>(1, {
                              RESULT(acosf(-0x1.ff7ceep-1f), 0x1.8c662ap+1f),
                              RESULT(asinf(0x1.666666p-1f), 0x1.8d00e6p-1f),
                              RESULT(atanf(0x1.2a05f2p+33f), 0x1.921fb6p+0f),
                              RESULT(atanf(-0x1.333334p-2f), -0x1.2a73a8p-2f),
                              RESULT(cosf(0x1.0f0cf0p+73f), 0x1.5badeep-1f),
                              RESULT(sinf(0x1.921fb6p+1f), -0x1.777a5cp-24f),
                              RESULT(sinf(0x1.0f0cf0p+73f), -0x1.77d988p-1f),
                              RESULT(tanf(0x1.921fb6p+0f), -0x1.5d1494p+24f),
                              RESULT(expf(0x1.6p+6f), 0x1.f1056ep+126f),
                              RESULT(expf(-0x1.9p+6f), 0x1.bp-145f),
                              RESULT(exp2f(0x1p-1f), 0x1.6a09e6p+0f),
                              RESULT(exp2f(-0x1.fap+6f), 0x1.6a09e8p-127f),
                              RESULT(__exp10f(-0x1.8p+1f), 0x1.0624dep-10f),
                              RESULT(__exp10f(0x1.34p+5f), 0x1.dbce82p+127f),
                              RESULT(logf(0x1.000002p+0f), 0x1.fffffep-24f),
                              RESULT(logf(0x1p-149f), -0x1.9d1da0p+6f),
                              RESULT(log10f(0x1p+1f), 0x1.344136p-2f),
                              RESULT(log10f(0x1p-149f), -0x1.66d3e8p+5f),
                              RESULT(atan2f(0x1p+0f, -0x1.8p+1f), 0x1.68f096p+1f),
                              RESULT(powf(0x1.00068ep+0f, 0x1.388p+13f), 0x1.5bfafcp+1f),
                              RESULT(powf(0x1.4p+3f, -0x1.4p+5f), 0x1.16c2p-133f),
                          });
}

GUEST_TEST(what_c_defines_is_exact) {
  check_results<double>(0, {
                               RESULT(log10(1000.0), 3.0),
                               RESULT(log10(0.0), -inf),
                               RESULT(log(-1.0), nan),
                               RESULT(log(1.0), 0.0),
                               RESULT(log2(536870912.0), 29.0),
                               RESULT(log2(0x1p-1074), -1074.0),
                               RESULT(log2(-0.0), -inf),
                               RESULT(log2(-1.0), nan),
                               RESULT(log2(inf), inf),
                               RESULT(logb(0x1p-1074), -1074.0),
                               RESULT(logb(-12.0), 3.0),
                               RESULT(logb(0.0), -inf),
                               RESULT(logb(-inf), inf),
                               RESULT(logb(nan), nan),
                               RESULT(exp(-inf), 0.0),
                               RESULT(exp(710.0), inf),
                               RESULT(sin(-0.0), -0.0),
                               RESULT(sin(inf), nan),
                               RESULT(cos(0.0), 1.0),
                               RESULT(tan(-0.0), -0.0),
                               RESULT(acos(1.0), 0.0),
                               RESULT(acos(1.5), nan),
                               RESULT(asin(-0.0), -0.0),
                               RESULT(atan(-inf), -0x1.921fb54442d18p+0),
                               RESULT(pow(1.0, nan), 1.0),
                               RESULT(pow(nan, -0.0), 1.0),
                               RESULT(pow(-1.0, -inf), 1.0),
                               RESULT(pow(-0.0, -3.0), -inf),
                               RESULT(pow(-8.0, 1.0 / 3), nan),
                               RESULT(pow(0.5, -inf), inf),
                               RESULT(pow(-2.0, 3.0), -8.0),
                               RESULT(fmod(1.0, inf), 1.0),
                               RESULT(fmod(inf, 1.0), nan),
                               RESULT(fmod(1.0, 0.0), nan),
                               RESULT(fmod(-4.0, 2.0), -0.0),
                               RESULT(fmod(-5.5, 2.0), -1.5),
                               RESULT(fmod(1e300, 7.0), 1.0),
                               RESULT(fmod(1e300, 0x1.921fb54442d18p+1), 0x1.358676425a468p+1),
                               RESULT(hypot(nan, -inf), inf),
                               RESULT(hypot(nan, 1.0), nan),
                               RESULT(hypot(-3.0, 4.0), 5.0),
                               RESULT(hypot(0x1p-1074, 0.0), 0x1p-1074),
                               RESULT(atan2(0x1p-997, 0x1p+997), 0.0),
                               RESULT(atan2(-0.0, -1.0), -0x1.921fb54442d18p+1),
                               RESULT(atan2(0.0, -0.0), 0x1.921fb54442d18p+1),
                               RESULT(atan2(inf, -inf), 0x1.2d97c7f3321d2p+1),
                               RESULT(scalbn(0x1.8p0, -1075), 0x1p-1074),
                               RESULT(scalbn(0x1p-1074, 1074), 1),
                               RESULT(scalbn(1, 2147483647), inf),
                               RESULT(scalbn(-1, -2147483647 - 1), -0.0),
                               RESULT(scalbn(-0.0, 5), -0.0),
                               RESULT(scalbn(inf, -5), inf),
                           });
  check_results<float>(0, {
                              RESULT(exp2f(-149.0f), 0x1p-149f),
                              RESULT(exp2f(128.0f), infinite),
                              RESULT(exp2f(-infinite), 0.0f),
                              RESULT(exp2f(10.0f), 1024.0f),
                              RESULT(__exp10f(2.0f), 100.0f),
                              RESULT(sinf(-0.0f), -0.0f),
                              RESULT(log10f(100.0f), 2.0f),
                              RESULT(asinf(2.0f), __builtin_nanf("")),
                              RESULT(powf(-1.0f, infinite), 1.0f),
                              RESULT(powf(-2.0f, 5.0f), -32.0f),
                              RESULT(fmodf(-5.5f, 2.0f), -1.5f),
                              RESULT(fmodf(1e38f, 7.0f), 2.0f),
                              RESULT(atan2f(-0.0f, -1.0f), -0x1.921fb6p+1f),
                              RESULT(ldexpf(0.75f, 3), 6),
                              RESULT(ldexpf(0x1.8p0f, -149), 0x1p-148f),
                              RESULT(ldexpf(1, 128), infinite),
                              RESULT(ldexpf(-0.0f, 9), -0.0f),
                          });
}

GUEST_TEST(a_value_splits_into_whole_and_fraction) {
  static const struct {
    double x, whole, fraction;
  } rows[] = {{3.75, 3, 0.75},        {-3, -3, -0.0},  {-0.5, -0.0, -0.5},
              {-0.0, -0.0, -0.0},     {inf, inf, 0},   {-inf, -inf, -0.0},
              {-1e300, -1e300, -0.0}, {nan, nan, nan}, {0x1.fffffffffffffp+51, 0x1.ffffffffffffep+51, 0.5}};
  for (const auto& row : rows) {
    double whole;
    const double fraction = modf(row.x, &whole);
    CHECK(steps(fraction, row.fraction) == 0);
    CHECK(steps(whole, row.whole) == 0);
  }
}

GUEST_TEST(pairs_come_back_in_registers) {
  const SineCosine doubles = __sincos_stret(2.5);
  CHECK(steps(doubles.sine, 0x1.326af0dcfcab1p-1) <= 1 && steps(doubles.cosine, -0x1.9a2f7ef858b7dp-1) <= 1);
  const SineCosineFloat floats = __sincosf_stret(2.5f);
  CHECK(steps(floats.sine, 0x1.326af0p-1f) <= 1 && steps(floats.cosine, -0x1.9a2f7ep-1f) <= 1);
  const Quotient quotient = div(-7, 2);
  CHECK(quotient.quot == -3 && quotient.rem == -1);
}
