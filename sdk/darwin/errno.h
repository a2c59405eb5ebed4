// The part of macOS's <errno.h> that the real programs need.
#pragma once
#ifdef __cplusplus
extern "C"
#endif
    int*
    __error(void);
#define errno (*__error())

#define EPERM 1
#define ENOENT 2
#define EINTR 4
#define EIO 5
#define EBADF 9
#define ENOMEM 12
#define EACCES 13
#define EFAULT 14
#define EBUSY 16
#define EEXIST 17
#define ENOTDIR 20
#define EISDIR 21
#define EINVAL 22
#define EMFILE 24
#define ENOTTY 25
#define EFBIG 27
#define ENOSPC 28
#define ESPIPE 29
#define EROFS 30
#define EPIPE 32
#define EDOM 33
#define ERANGE 34
#define EAGAIN 35
#define ENOTSUP 45
#define ETIMEDOUT 60
#define ENAMETOOLONG 63
#define ENOTEMPTY 66
#define ENOLCK 77
#define EOVERFLOW 84
