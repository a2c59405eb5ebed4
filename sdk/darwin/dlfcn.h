// macOS's <dlfcn.h>.
#pragma once
#ifdef __cplusplus
extern "C" {
#endif
typedef struct {
  const char* dli_fname;
  void* dli_fbase;
  const char* dli_sname;
  void* dli_saddr;
} Dl_info;
void* dlopen(const char* path, int mode);
void* dlsym(void* handle, const char* name);
int dlclose(void* handle);
char* dlerror(void);
int dladdr(const void* address, Dl_info* info);
#ifdef __cplusplus
}
#endif
