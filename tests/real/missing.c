// What the real programs call when they run here and the game's library does not answer, over what it answers.
// docs/real-programs.md has the list. Nothing here stands for a function that the library has: the check real.lacking
// sees to it.
#include <errno.h>
#include <locale.h>
#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

// ---- Texts and numbers ----------------------------------------------------------------------------------------------
static size_t span(const char* text, const char* set, int inside) {
  size_t length = 0;
  while (text[length] && (strchr(set, text[length]) != 0) == inside) ++length;
  return length;
}
size_t strspn(const char* text, const char* set) { return span(text, set, 1); }
size_t strcspn(const char* text, const char* set) { return span(text, set, 0); }
char* strpbrk(const char* text, const char* set) {
  text += strcspn(text, set);
  return *text ? (char*)text : 0;
}
int strcoll(const char* left, const char* right) { return strcmp(left, right); }
char* strerror(int error) {
  static char text[128];
  strerror_r(error, text, sizeof text);
  return text;
}
int __toupper(int c) { return c >= 'a' && c <= 'z' ? c - 32 : c; }
struct lconv* localeconv(void) {
  static struct lconv c = {"."};
  return &c;
}
double strtod(const char* text, char** end) {
  double value = 0;
  int length = 0;
  if (sscanf(text, "%lf%n", &value, &length) < 1) length = 0;
  if (end) *end = (char*)text + length;
  return value;
}
long long strtoll(const char* text, char** end, int base) { return strtol(text, end, base); }
double scalbn(double x, int exponent);
double ldexp(double x, int exponent) { return scalbn(x, exponent); }
double logb(double x);
double frexp(double x, int* exponent) {
  *exponent = x == 0 || x - x != 0 ? 0 : (int)logb(x) + 1;
  return scalbn(x, -*exponent);
}

// ---- Streams --------------------------------------------------------------------------------------------------------
int printf(const char* format, ...) {
  char text[16384];  // nobody prints more
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return fwrite(text, 1, length, stdout) == length ? length : -1;
}
int fputs(const char* text, FILE* stream) { return fwrite(text, 1, strlen(text), stream) == strlen(text) ? 0 : EOF; }
int fputc(int c, FILE* stream) { return fwrite(&(char){c}, 1, 1, stream) == 1 ? c & 255 : EOF; }
int putchar(int c) { return fputc(c, stdout); }
int puts(const char* text) { return fputs(text, stdout) == EOF ? EOF : putchar('\n'); }
int getc(FILE* stream) {
  unsigned char byte;
  return fread(&byte, 1, 1, stream) == 1 ? byte : EOF;
}
int feof(FILE* stream) { return getc(stream) == EOF || fseek(stream, -1, SEEK_CUR) != 0; }  // reading may not have tried
int ferror(FILE* stream) { return 0; }                                                      // not to be known
void clearerr(FILE* stream) {}

// ---- Files and the process ------------------------------------------------------------------------------------------
int remove(const char* path) { return unlink(path) == 0 || rmdir(path) == 0 ? 0 : -1; }
int fsync(int number) { return 0; }
int fchmod(int number, mode_t mode) { return 0; }
int fchown(int number, uid_t user, gid_t group) { return 0; }
pid_t getpid(void) { return 1; }
int usleep(useconds_t microseconds) {
  return nanosleep(&(struct timespec){microseconds / 1000000, microseconds % 1000000 * 1000}, 0);
}
unsigned sleep(unsigned seconds) { return usleep(seconds * 1000000); }
int pthread_mutex_trylock(pthread_mutex_t* mutex) { return EBUSY; }  // callers have another way
