// What the real programs call and the game's library does not answer, over what it answers. docs/real-programs.md says
// which program needs what. Nothing here stands for a function that the library has: the check real.lacking sees to it.
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <locale.h>
#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

// ---- Texts ----------------------------------------------------------------------------------------------------------
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
char* strcat(char* to, const char* from) {
  strcpy(to + strlen(to), from);
  return to;
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

// ---- Numbers --------------------------------------------------------------------------------------------------------
double strtod(const char* text, char** end) {
  double value = 0;
  int length = 0;
  if (sscanf(text, "%lf%n", &value, &length) < 1) length = 0;
  if (end) *end = (char*)text + length;
  return value;
}
long long strtoll(const char* text, char** end, int base) { return strtol(text, end, base); }
double atof(const char* text) { return strtod(text, 0); }
double scalbn(double x, int exponent);
double ldexp(double x, int exponent) { return scalbn(x, exponent); }
double logb(double x);
double frexp(double x, int* exponent) {
  *exponent = 0;
  if (x == 0 || x - x != 0) return x;
  *exponent = (int)logb(x) + 1;
  return scalbn(x, -*exponent);
}

// ---- Streams --------------------------------------------------------------------------------------------------------
int vfprintf(FILE* stream, const char* format, va_list arguments) {
  char small[512];
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(small, sizeof small, format, arguments);
  char* text = length < (int)sizeof small ? small : malloc(length + 1);
  if (text != small) vsnprintf(text, length + 1, format, again);
  va_end(again);
  const size_t written = length > 0 ? fwrite(text, 1, length, stream) : 0;
  if (text != small) free(text);
  return length >= 0 && written == (size_t)length ? length : -1;
}
int vprintf(const char* format, va_list arguments) { return vfprintf(stdout, format, arguments); }
int printf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = vfprintf(stdout, format, arguments);
  va_end(arguments);
  return length;
}
int sprintf(char* to, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(to, 0x7FFFFFFF, format, arguments);
  va_end(arguments);
  return length;
}
int fputs(const char* text, FILE* stream) {
  const size_t length = strlen(text);
  return length == 0 || fwrite(text, length, 1, stream) == 1 ? 0 : EOF;
}
int fputc(int c, FILE* stream) {
  const unsigned char byte = c;
  return fwrite(&byte, 1, 1, stream) == 1 ? byte : EOF;
}
int putc(int c, FILE* stream) { return fputc(c, stream); }
int putchar(int c) { return fputc(c, stdout); }
int puts(const char* text) { return fputs(text, stdout) == EOF ? EOF : putchar('\n'); }
void perror(const char* text) { fprintf(stderr, "%s: %s\n", text, strerror(errno)); }

int getc(FILE* stream) {
  unsigned char byte;
  return fread(&byte, 1, 1, stream) == 1 ? byte : EOF;
}
/// Of streams that can seek.
int ungetc(int c, FILE* stream) { return c != EOF && fseek(stream, -1, SEEK_CUR) == 0 ? c : EOF; }
char* fgets(char* to, int size, FILE* stream) {
  int length = 0;
  while (length < size - 1) {
    const int c = getc(stream);
    if (c == EOF) break;
    to[length++] = c;
    if (c == '\n') break;
  }
  to[length] = '\0';
  return length ? to : 0;
}
/// Whether nothing follows; reading may not have tried yet.
int feof(FILE* stream) {
  const int c = getc(stream);
  ungetc(c, stream);
  return c == EOF;
}
int ferror(FILE* stream) { return 0; }  // not to be known
void clearerr(FILE* stream) {}
int setvbuf(FILE* stream, char* buffer, int mode, size_t size) { return 0; }  // buffered as the library likes
int fileno(FILE* stream) { return stream == stdin ? 0 : stream == stdout ? 1 : stream == stderr ? 2 : -1; }
FILE* freopen(const char* path, const char* mode, FILE* stream) {
  fclose(stream);
  return fopen(path, mode);
}

// ---- Files and the process ------------------------------------------------------------------------------------------
int remove(const char* path) { return unlink(path) == 0 || rmdir(path) == 0 ? 0 : -1; }
char* tmpnam(char* to) {
  static int count;
  do snprintf(to, L_tmpnam, "temporary%d", ++count);
  while (access(to, F_OK) == 0);
  return to;
}
FILE* tmpfile(void) {
  char path[L_tmpnam];
  return fopen(tmpnam(path), "w+");
}
int fsync(int number) { return 0; }
int fchmod(int number, mode_t mode) { return 0; }
int fchown(int number, uid_t user, gid_t group) { return 0; }
pid_t getpid(void) { return 1; }
int usleep(useconds_t microseconds) {
  const struct timespec time = {microseconds / 1000000, microseconds % 1000000 * 1000};
  return nanosleep(&time, 0);
}
unsigned sleep(unsigned seconds) { return usleep(seconds * 1000000); }
int pthread_mutex_trylock(pthread_mutex_t* mutex) { return EBUSY; }  // callers have another way
int system(const char* command) { return command ? -1 : 0; }  // there is no command processor
void __assert_rtn(const char* function, const char* file, int line, const char* what) {
  fprintf(stderr, "%s:%d: %s: %s does not hold\n", file, line, function, what);
  exit(99);
}
