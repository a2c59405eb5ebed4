// The part of macOS's <ctype.h> that the real programs need. As there, ASCII is looked up in the program's own code, in
// the system's table.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif
typedef struct {
  char magic[8];
  char encoding[32];
  void* functions[2];
  int invalid_rune;
  unsigned runetype[256];  // more follows
} _RuneLocale;
extern _RuneLocale _DefaultRuneLocale;
int __maskrune(int c, unsigned long mask);
int __tolower(int c);
int __toupper(int c);

static inline int __istype(int c, unsigned long mask) {
  return c >= 0 && c < 128 ? (_DefaultRuneLocale.runetype[c] & mask) != 0 : __maskrune(c, mask) != 0;
}
static inline int isalpha(int c) { return __istype(c, 0x100); }
static inline int iscntrl(int c) { return __istype(c, 0x200); }
static inline int isdigit(int c) { return c >= '0' && c <= '9'; }
static inline int isgraph(int c) { return __istype(c, 0x800); }
static inline int islower(int c) { return __istype(c, 0x1000); }
static inline int ispunct(int c) { return __istype(c, 0x2000); }
static inline int isspace(int c) { return __istype(c, 0x4000); }
static inline int isupper(int c) { return __istype(c, 0x8000); }
static inline int isxdigit(int c) { return __istype(c, 0x10000); }
static inline int isprint(int c) { return __istype(c, 0x40000); }
static inline int isalnum(int c) { return __istype(c, 0x500); }
static inline int tolower(int c) { return __tolower(c); }
static inline int toupper(int c) { return __toupper(c); }
#ifdef __cplusplus
}
#endif
