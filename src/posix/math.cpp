// Mathematics. Arguments and results of these functions travel in the same vector registers in both conventions.
//
// Two host libraries offer them, and neither is right everywhere:
//   msvcrt.dll   computes in vector registers. Used for all that needs many steps; it has no exp2f, log2 and so on, and
//                what C defines for zeros, infinities and NaN is not safe with every version of pow, atan2, fmod, modf.
//   the linked runtime's own (mingw-w64) computes with the x87, whose precision Windows sets to 53 bits on every new
//                thread: its pow loses bits then, and its sin knows too little of pi. But what a single x87 instruction
//                answers (fpatan, fprem, fyl2x, f2xm1, fscale, fxtract) does not depend on that setting.
// So each function below says where it comes from by the name it calls: host_... is msvcrt.dll.
#include <cmath>
#include <cstdint>

#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {
namespace {

#define HOST(type, function, ...) \
  extern "C" __declspec(dllimport) type host_##function(__VA_ARGS__) __asm__(#function)
HOST(double, acos, double);
HOST(double, asin, double);
HOST(double, atan, double);
HOST(double, cos, double);
HOST(double, sin, double);
HOST(double, tan, double);
HOST(double, exp, double);
HOST(double, log, double);
HOST(double, log10, double);
HOST(double, pow, double, double);
HOST(float, acosf, float);
HOST(float, asinf, float);
HOST(float, atanf, float);
HOST(float, cosf, float);
HOST(float, sinf, float);
HOST(float, tanf, float);
HOST(float, expf, float);
HOST(float, logf, float);
HOST(float, log10f, float);
HOST(float, powf, float, float);
#undef HOST

template <class T, T (*function)(T)>
SYSV T unary(T x) {
  return function(x);
}
template <class T, T (*function)(T, T)>
SYSV T binary(T x, T y) {
  return function(x, y);
}

/// Whatever y is, and whatever x is: C defines these as 1, NaN included, where a host may answer NaN.
template <class T>
bool power_is_one(T x, T y) {
  return x == 1 || y == 0 || (x == -1 && std::isinf(y));
}
SYSV double pow_(double x, double y) { return power_is_one(x, y) ? 1 : host_pow(x, y); }
SYSV float powf_(float x, float y) { return power_is_one(x, y) ? 1 : host_powf(x, y); }
SYSV float exp10f_(float x) { return host_powf(10, x); }

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
SYSV SineCosine sincos_stret_(double x) { return {host_sin(x), host_cos(x)}; }

/// Sine and cosine in the two low lanes of xmm0.
struct SineCosineFloat {
  float sine, cosine;
};
SYSV SineCosineFloat sincosf_stret_(float x) { return {host_sinf(x), host_cosf(x)}; }

}  // namespace

const ShimEntry math_shims[34] = {
    {"_acos", shim(unary<double, host_acos>)},
    {"_acosf", shim(unary<float, host_acosf>)},
    {"_asin", shim(unary<double, host_asin>)},
    {"_asinf", shim(unary<float, host_asinf>)},
    {"_atan", shim(unary<double, host_atan>)},
    {"_atanf", shim(unary<float, host_atanf>)},
    {"_atan2", shim(binary<double, ::atan2>)},
    {"_atan2f", shim(binary<float, ::atan2f>)},
    {"_cos", shim(unary<double, host_cos>)},
    {"_cosf", shim(unary<float, host_cosf>)},
    {"_sin", shim(unary<double, host_sin>)},
    {"_sinf", shim(unary<float, host_sinf>)},
    {"_tan", shim(unary<double, host_tan>)},
    {"_tanf", shim(unary<float, host_tanf>)},
    {"_exp", shim(unary<double, host_exp>)},
    {"_expf", shim(unary<float, host_expf>)},
    {"_exp2f", shim(unary<float, ::exp2f>)},
    {"___exp10f", shim(exp10f_)},
    {"_log", shim(unary<double, host_log>)},
    {"_logf", shim(unary<float, host_logf>)},
    {"_log10", shim(unary<double, host_log10>)},
    {"_log10f", shim(unary<float, host_log10f>)},
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

}  // namespace vlm
