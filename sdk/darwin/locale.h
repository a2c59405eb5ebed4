// The part of macOS's <locale.h> that the real programs need.
#pragma once
#define LC_ALL 0
#define LC_COLLATE 1
#define LC_CTYPE 2
#define LC_MONETARY 3
#define LC_NUMERIC 4
#define LC_TIME 5
struct lconv {
  char* decimal_point;  // more follows
};
#ifdef __cplusplus
extern "C" {
#endif
char* setlocale(int category, const char* locale);
struct lconv* localeconv(void);
#ifdef __cplusplus
}
#endif
