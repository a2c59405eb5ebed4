// macOS's <setjmp.h> for x86-64.
#pragma once
#ifdef __cplusplus
extern "C" {
#endif
typedef int jmp_buf[37];
int setjmp(jmp_buf buffer) __attribute__((returns_twice));
void longjmp(jmp_buf buffer, int value) __attribute__((noreturn));
int _setjmp(jmp_buf buffer) __attribute__((returns_twice));
void _longjmp(jmp_buf buffer, int value) __attribute__((noreturn));
#ifdef __cplusplus
}
#endif
