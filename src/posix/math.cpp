// Mathematics. Arguments and results of these functions travel in the same vector registers in both conventions.
//
// Two host libraries offer them, and neither is right everywhere:
//   msvcrt.dll   computes in vector registers. Used for all that needs many steps; it has no exp2f, log2 and so on, and
//                what C defines for zeros, infinities and NaN is not safe with every version of pow, atan2, fmod, modf.
//   the linked runtime's own (mingw-w64) computes with the x87, whose precision Windows sets to 53 bits on every new
//                thread: its pow loses bits then, and its sin knows too little of pi. But what a single x87 instruction
//                answers (fpatan, fprem, fyl2x, f2xm1, fscale, fxtract) does not depend on that setting.
//                Its hypot asks msvcrt.dll, after it has answered for infinities and NaN.
// So each function below says where it comes from by the name it calls: __imp_... is msvcrt.dll.
#include <cmath>
#include <cstdint>

#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {
namespace {

// The slots of the import table, by the linker's names for them. A plain declaration would not do: the compiler knows
// functions of these names and may put a call of another one in the place.
extern "C" {
extern double (*const __imp_acos)(double), (*const __imp_asin)(double), (*const __imp_atan)(double);
extern double (*const __imp_cos)(double), (*const __imp_sin)(double), (*const __imp_tan)(double);
extern double (*const __imp_exp)(double), (*const __imp_log)(double), (*const __imp_log10)(double);
extern double (*const __imp_pow)(double, double);
extern float (*const __imp_acosf)(float), (*const __imp_asinf)(float), (*const __imp_atanf)(float);
extern float (*const __imp_cosf)(float), (*const __imp_sinf)(float), (*const __imp_tanf)(float);
extern float (*const __imp_expf)(float), (*const __imp_logf)(float), (*const __imp_log10f)(float);
extern float (*const __imp_powf)(float, float);
}

template <class T, T (*const& slot)(T)>
SYSV T imported(T x) {
  return slot(x);
}
template <class T, T (*function)(T)>
SYSV T unary(T x) {
  return function(x);
}
template <class T, T (*function)(T, T)>
SYSV T binary(T x, T y) {
  return function(x, y);
}

/// Under Wine 8 the host's answers 1 + x to -10,000, say.
SYSV double exp_(double x) {
  constexpr double underflows_below = -746;
  return x < underflows_below ? 0 : __imp_exp(x);
}

/// Whatever y is, and whatever x is: C defines these as 1, NaN included, where a host may answer NaN.
template <class T>
bool power_is_one(T x, T y) {
  return x == 1 || y == 0 || (x == -1 && std::isinf(y));
}
SYSV double pow_(double x, double y) { return power_is_one(x, y) ? 1 : __imp_pow(x, y); }
SYSV float powf_(float x, float y) { return power_is_one(x, y) ? 1 : __imp_powf(x, y); }
SYSV float exp10f_(float x) { return __imp_powf(10, x); }

/// In double precision, so that a result that is not a normal float is rounded once.
SYSV float ldexpf_(float x, std::int32_t n) { return static_cast<float>(std::ldexp(static_cast<double>(x), n)); }
SYSV double scalbn_(double x, std::int32_t n) { return std::scalbn(x, n); }

/// Both parts have the sign of x, zeros too.
SYSV double modf_(double x, double* whole) {
  // From 2^52 on a double has no fraction; infinities and NaN are whole too.
  const bool has_fraction = std::fabs(x) < 0x1p52;
  *whole = has_fraction ? std::copysign(static_cast<double>(static_cast<std::int64_t>(x)), x) : x;
  if (std::isnan(x)) return x;
  return std::copysign(has_fraction ? x - *whole : 0, x);
}

/// Sine and cosine in xmm0 and xmm1.
struct SineCosine {
  double sine, cosine;
};
SYSV SineCosine sincos_stret_(double x) { return {__imp_sin(x), __imp_cos(x)}; }

/// Sine and cosine in the two low lanes of xmm0.
struct SineCosineFloat {
  float sine, cosine;
};
SYSV SineCosineFloat sincosf_stret_(float x) { return {__imp_sinf(x), __imp_cosf(x)}; }

}  // namespace

const ShimEntry math_rows[] = {
    {"_acos", shim(imported<double, __imp_acos>)},
    {"_acosf", shim(imported<float, __imp_acosf>)},
    {"_asin", shim(imported<double, __imp_asin>)},
    {"_asinf", shim(imported<float, __imp_asinf>)},
    {"_atan", shim(imported<double, __imp_atan>)},
    {"_atanf", shim(imported<float, __imp_atanf>)},
    {"_atan2", shim(binary<double, ::atan2>)},
    {"_atan2f", shim(binary<float, ::atan2f>)},
    {"_cos", shim(imported<double, __imp_cos>)},
    {"_cosf", shim(imported<float, __imp_cosf>)},
    {"_sin", shim(imported<double, __imp_sin>)},
    {"_sinf", shim(imported<float, __imp_sinf>)},
    {"_tan", shim(imported<double, __imp_tan>)},
    {"_tanf", shim(imported<float, __imp_tanf>)},
    {"_exp", shim(exp_)},
    {"_expf", shim(imported<float, __imp_expf>)},
    {"_exp2f", shim(unary<float, ::exp2f>)},
    {"___exp10f", shim(exp10f_)},
    {"_log", shim(imported<double, __imp_log>)},
    {"_logf", shim(imported<float, __imp_logf>)},
    {"_log10", shim(imported<double, __imp_log10>)},
    {"_log10f", shim(imported<float, __imp_log10f>)},
    {"_log2", shim(unary<double, ::log2>)},
    {"_logb", shim(unary<double, ::logb>)},
    {"_fmod", shim(binary<double, ::fmod>)},
    {"_fmodf", shim(binary<float, ::fmodf>)},
    {"_hypot", shim(binary<double, ::hypot>)},
    {"_pow", shim(pow_)},
    {"_powf", shim(powf_)},
    {"_ldexpf", shim(ldexpf_)},
    {"_scalbn", shim(scalbn_)},
    {"_modf", shim(modf_)},
    {"___sincos_stret", shim(sincos_stret_)},
    {"___sincosf_stret", shim(sincosf_stret_)},
};
constinit const ShimRows math_shims = math_rows;

}  // namespace vlm
