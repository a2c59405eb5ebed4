// macOS's <assert.h>. It may be included again with another NDEBUG.
#undef assert
#ifdef __cplusplus
extern "C"
#endif
    void
    __assert_rtn(const char* function, const char* file, int line, const char* what) __attribute__((noreturn));
#ifdef NDEBUG
#define assert(condition) ((void)0)
#else
#define assert(condition) ((condition) ? (void)0 : __assert_rtn(__func__, __FILE__, __LINE__, #condition))
#endif
