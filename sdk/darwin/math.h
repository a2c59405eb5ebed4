// The part of macOS's <math.h> that guests, the real programs among them, and libc++'s headers need.
#pragma once

#define FP_NAN 1
#define FP_INFINITE 2
#define FP_ZERO 3
#define FP_NORMAL 4
#define FP_SUBNORMAL 5
#define HUGE_VAL __builtin_huge_val()
#define INFINITY __builtin_inff()
#define NAN __builtin_nanf("")

#ifdef __cplusplus
extern "C" {
#endif
double acos(double x);
double asin(double x);
double atan(double x);
double atan2(double y, double x);
double ceil(double x);
double cos(double x);
double exp(double x);
double fabs(double x);
double floor(double x);
double fmod(double x, double y);
double frexp(double x, int* exponent);
double ldexp(double x, int exponent);
double log(double x);
double log10(double x);
double log2(double x);
double pow(double x, double y);
double sin(double x);
double sqrt(double x);
double tan(double x);
#ifdef __cplusplus
}
#endif
