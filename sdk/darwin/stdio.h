// The part of macOS's <stdio.h> that guests, the real programs among them, and libc++'s headers need.
#pragma once
#define __need_size_t
#define __need_NULL
#include <stdarg.h>
#include <stddef.h>
#include "sys/types.h"

#define EOF (-1)
#define BUFSIZ 1024
#define FILENAME_MAX 1024
#define L_tmpnam 1024
#define SEEK_SET 0
#define SEEK_CUR 1
#define SEEK_END 2
#define _IOFBF 0
#define _IOLBF 1
#define _IONBF 2
#define stdin __stdinp
#define stdout __stdoutp
#define stderr __stderrp

#ifdef __cplusplus
extern "C" {
#endif
typedef struct FILE FILE;
extern FILE* __stdinp;
extern FILE* __stdoutp;
extern FILE* __stderrp;

FILE* fopen(const char* path, const char* mode);
FILE* freopen(const char* path, const char* mode, FILE* stream);
FILE* tmpfile(void);
int fclose(FILE* stream);
int fflush(FILE* stream);
size_t fread(void* to, size_t size, size_t count, FILE* stream);
size_t fwrite(const void* from, size_t size, size_t count, FILE* stream);
int fseek(FILE* stream, long offset, int whence);
long ftell(FILE* stream);
void rewind(FILE* stream);
int feof(FILE* stream);
int ferror(FILE* stream);
void clearerr(FILE* stream);
int fileno(FILE* stream);
int setvbuf(FILE* stream, char* buffer, int mode, size_t size);
int getc(FILE* stream);
int ungetc(int c, FILE* stream);
char* fgets(char* to, int size, FILE* stream);
int fputc(int c, FILE* stream);
int putc(int c, FILE* stream);
int putchar(int c);
int fputs(const char* text, FILE* stream);
int puts(const char* text);
int printf(const char* format, ...);
int fprintf(FILE* stream, const char* format, ...);
int sprintf(char* to, const char* format, ...);
int snprintf(char* to, size_t size, const char* format, ...);
int vprintf(const char* format, va_list arguments);
int vfprintf(FILE* stream, const char* format, va_list arguments);
int vsnprintf(char* to, size_t size, const char* format, va_list arguments);
int sscanf(const char* text, const char* format, ...);
void perror(const char* text);
char* tmpnam(char* to);
int remove(const char* path);  // libc++ has an algorithm of the name, and wants both
int rename(const char* from, const char* to);
#ifdef __cplusplus
}
#endif
