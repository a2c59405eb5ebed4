// Environment, process, system information, images and dynamic loading.
#include "darwin.h"

extern "C" {
int32 _NSGetExecutablePath(char*, uint32*);
int32 atexit(void (*)());
int32 __cxa_atexit(void (*)(void*), void*, void*);
[[noreturn]] void __stack_chk_fail();
extern const uint64 __stack_chk_guard;
int32 backtrace(void**, int32);
char** backtrace_symbols(void**, int32);
int32 _availability_version_check(uint32, const void*);
int32 __darwin_check_fd_set_overflow(int32, const void*, int32);

int32 sysctl(const int32*, uint32, void*, uint64*, const void*, uint64);
int32 uname(void*);
int32 gethostname(char*, uint64);
int32 getrlimit(int32, uint64*);
int32 getrusage(int32, void*);
uint32 getegid();
uint32 _dyld_image_count();
const char* _dyld_get_image_header(uint32);
const char* _dyld_get_image_name(uint32);
const char* getsectiondata(const void*, const char*, const char*, uint64*);

/// Looked up by name below.
__attribute__((section("__DATA,__vlm_test"), used, visibility("default"))) char marked_data[24] = "marked";
int32 exported_function(int32 x) { return x + 1; }
}

namespace {

bool ends_with(const char* text, const char* end) {
  return strlen(text) >= strlen(end) && same(text + strlen(text) - strlen(end), end);
}

}  // namespace

GUEST_TEST(what_getenv_returned_stays_as_it_was) {
  CHECK(getenv("VLM_TEST") == nullptr);
  CHECK(setenv("VLM_TEST", "one \xC3\xA9", 0) == 0);
  const char* const one = getenv("VLM_TEST");
  CHECK(same(one, "one \xC3\xA9"));
  CHECK(setenv("VLM_TEST", "two", 0) == 0 && same(getenv("VLM_TEST"), one));
  CHECK(setenv("VLM_TEST", "two", 1) == 0 && same(getenv("VLM_TEST"), "two"));
  CHECK(same(one, "one \xC3\xA9") && getenv("VLM_TEST") == getenv("VLM_TEST"));
  CHECK(setenv("VLM_TEST", "", 1) == 0 && same(getenv("VLM_TEST"), ""));
  CHECK(setenv("VLM_TEST", "three", 0) == 0 && same(getenv("VLM_TEST"), ""));
  CHECK(unsetenv("VLM_TEST") == 0 && getenv("VLM_TEST") == nullptr && unsetenv("VLM_TEST") == 0);
  static constexpr const char* bad_names[] = {"", "A=B"};
  for (const char* bad : bad_names) {
    *__error() = 0;
    CHECK(setenv(bad, "x", 1) == -1 && *__error() == EINVAL);
    *__error() = 0;
    CHECK(unsetenv(bad) == -1 && *__error() == EINVAL);
    CHECK(getenv(bad) == nullptr);
  }
  static char long_text[40'000];
  memset(long_text, 'x', sizeof long_text - 1);
  CHECK(setenv("VLM_TEST", long_text, 1) == -1 && *__error() == ENOMEM && getenv("VLM_TEST") == nullptr);
  CHECK(unsetenv(long_text) == -1 && getenv(long_text) == nullptr);
}

GUEST_TEST(home_and_tmpdir_are_the_players_folders_whatever_is_set) {
  CHECK(setenv("USERPROFILE", "C:\\Users\\Some One", 1) == 0);
  const char* const home = getenv("HOME");
  CHECK(same(home, "C:/Users/Some One"));
  CHECK(setenv("HOME", "/tmp", 1) == 0 && setenv("USERPROFILE", "D:\\", 1) == 0);
  CHECK(getenv("HOME") == home && same(home, "C:/Users/Some One"));
  CHECK(unsetenv("HOME") == 0 && same(getenv("HOME"), home));
  const char* const temporary = getenv("TMPDIR");
  CHECK(temporary != nullptr && temporary[1] == ':' && strstr(temporary, "\\") == nullptr && ends_with(temporary, "/"));
  CHECK(setenv("TMPDIR", "/tmp", 1) == 0 && getenv("TMPDIR") == temporary);
}

GUEST_TEST(the_executable_path_is_given_when_there_is_room) {
  char path[1024];
  memset(path, 1, sizeof path);
  uint32 size = 4;
  CHECK(_NSGetExecutablePath(path, &size) == -1 && path[0] == 1);
  const uint32 needed = size--;
  CHECK(_NSGetExecutablePath(path, &size) == -1 && size == needed);
  CHECK(_NSGetExecutablePath(path, &size) == 0 && strlen(path) + 1 == needed && path[needed] == 1);
  CHECK(path[1] == ':' && ends_with(path, "/Velmora.app/Contents/MacOS/Velmora"));
}

GUEST_TEST(small_answers) {
  void* frames[4];
  CHECK(backtrace(frames, 4) == 0);
  char** const symbols = backtrace_symbols(frames, 3);
  CHECK(symbols != nullptr && !symbols[0] && !symbols[1] && !symbols[2] && !symbols[3]);
  free(symbols);
  CHECK(_availability_version_check(1, frames) == 1);
  static constexpr int32 descriptors[][3] = {{-1, 0, 0},   {-1, 1, 0},   {0, 0, 1},
                                             {1023, 0, 1}, {1024, 0, 0}, {1024, 1, 1}};
  for (const auto& [fd, unlimited, fits] : descriptors)
    CHECK(__darwin_check_fd_set_overflow(fd, frames, unlimited) == fits);
  CHECK(__stack_chk_guard != 0);
  CHECK(geteuid() == 501 && getegid() == 20 && getpagesize() == 4096);
}

GUEST_TEST(sysconf_and_sysctl_agree) {
  CHECK(sysconf(3) == 100 && sysconf(5) == 10240 && sysconf(29) == 4096);
  *__error() = 0;
  CHECK(sysconf(-1) == -1 && *__error() == EINVAL);

  static constexpr struct {
    int32 name[2];
    uint64 size;
    const char* text;
  } cases[] = {
      {{1, 1}, 7, "Darwin"}, {{1, 2}, 7, "21.6.0"}, {{1, 21}, 16, nullptr}, {{6, 2}, 7, "x86_64"}, {{6, 3}, 4, nullptr},
      {{6, 25}, 4, nullptr}, {{6, 5}, 8, nullptr},  {{6, 24}, 8, nullptr},  {{6, 7}, 4, nullptr},
  };
  uint64 value[3];
  const auto read = [&](const int32* name) {
    uint64 length = sizeof value;
    memset(value, 0, sizeof value);
    return sysctl(name, 2, value, &length, nullptr, 0) == 0 ? length : 0;
  };
  for (const auto& c : cases) {
    uint64 length = 0;
    CHECK(sysctl(c.name, 2, nullptr, &length, nullptr, 0) == 0 && length == c.size);
    CHECK(sysctl(c.name, 2, nullptr, nullptr, nullptr, 0) == 0);
    *__error() = 0;
    value[0] = 1;
    length = c.size - 1;
    CHECK(sysctl(c.name, 2, value, &length, nullptr, 0) == -1 && *__error() == ENOMEM && value[0] == 1);
    CHECK(sysctl(c.name, 2, value, nullptr, nullptr, 0) == -1);
    CHECK(read(c.name) == c.size);
    if (c.text != nullptr) CHECK(same(reinterpret_cast<const char*>(value), c.text));
  }
  const auto number = [&](int32 a, int32 b) {
    const int32 name[] = {a, b};
    read(name);
    return static_cast<int64>(value[0]);
  };
  CHECK(number(6, 3) >= 1 && number(6, 3) == sysconf(57) && number(6, 25) == sysconf(58));
  CHECK(number(6, 24) > (1L << 28) && number(6, 24) == number(6, 5) && number(6, 24) / 4096 == sysconf(200));
  CHECK(number(6, 7) == 4096);
  const int64 boot = number(1, 21);
  CHECK(boot > 1'000'000'000 && boot <= time(nullptr) && value[1] == 0);

  uint64 length = sizeof value;
  static constexpr int32 unknown[][3] = {{6, 1, 2}, {9, 1, 2}, {1, 0, 2}, {1, 1, 1}, {1, 1, 0}};
  for (const auto& [a, b, count] : unknown) {
    const int32 name[] = {a, b};
    *__error() = 0;
    CHECK(sysctl(name, count, value, &length, nullptr, 0) == -1 && *__error() == ENOENT);
  }

  const int32 process[] = {1, 14, 1, 1234};
  uint8 record[656];
  memset(record, 1, sizeof record);
  length = 0;
  CHECK(sysctl(process, 4, nullptr, &length, nullptr, 0) == 0 && length == 648);
  CHECK(sysctl(process, 4, record, &length, nullptr, 0) == 0 && length == 648);
  CHECK(record[0] == 0 && record[647] == 0 && record[648] == 1);
}

GUEST_TEST(the_system_has_a_name) {
  char name[1281], host[256];
  memset(name, 1, sizeof name);
  CHECK(uname(name) == 0 && name[1280] == 1);
  CHECK(same(name, "Darwin") && same(name + 512, "21.6.0") && same(name + 768, "Darwin Kernel Version 21.6.0"));
  CHECK(same(name + 1024, "x86_64") && name[1279] == 0 && name[255] == 0);
  CHECK(gethostname(host, sizeof host) == 0 && strlen(host) > 0 && same(host, name + 256));
  CHECK(gethostname(host, 1) == -1);
}

GUEST_TEST(limits_and_usage) {
  static constexpr uint64 infinite = 0x7FFF'FFFF'FFFF'FFFF;
  static constexpr uint64 limits[][2] = {{3, 0x800000}, {8, 10240}, {0, infinite}, {7, infinite}};
  for (const auto& [resource, limit] : limits) {
    uint64 found[2] = {};
    CHECK(getrlimit(resource, found) == 0 && found[0] == limit && found[1] == limit);
  }
  struct {
    struct {
      int64 seconds;
      int32 microseconds, padding;
    } user, system;
    uint64 rest[15];
  } usage;
  memset(&usage, 1, sizeof usage);
  for (volatile int i = 0; i < 100'000'000; i = i + 1) {  // some hundredths of a second of user time
  }
  CHECK(getrusage(0, &usage) == 0);
  CHECK(usage.user.seconds >= 0 && usage.user.seconds < 100'000 && usage.user.seconds + usage.user.microseconds > 0);
  CHECK(usage.user.microseconds < 1'000'000 && usage.system.microseconds < 1'000'000 && usage.system.seconds < 100'000);
  CHECK(usage.rest[0] == 0 && usage.rest[13] == 0 && usage.rest[14] == 0x0101'0101'0101'0101);
}

GUEST_TEST(the_image_finds_itself) {
  CHECK(_dyld_image_count() == 1);
  const char* const header = _dyld_get_image_header(0);
  CHECK(header != nullptr && *reinterpret_cast<const uint32*>(header) == 0xFEEDFACF);
  CHECK(ends_with(_dyld_get_image_name(0), "/system_guest.dylib"));
  CHECK(_dyld_get_image_header(1) == nullptr && _dyld_get_image_name(1) == nullptr);

  uint64 size = 0;
  CHECK(getsectiondata(header, "__DATA", "__vlm_test", &size) == marked_data && size == sizeof marked_data);
  size = 7;
  CHECK(getsectiondata(header, "__TEXT", "__vlm_test", &size) == nullptr && size == 7);
  CHECK(getsectiondata(header + 1, "__DATA", "__vlm_test", &size) == nullptr);

  Dl_info info{};
  const char* const inside = reinterpret_cast<const char*>(&exported_function) + 1;
  CHECK(dladdr(inside, &info) == 1 && info.dli_fname == _dyld_get_image_name(0) && info.dli_fbase == header);
  CHECK(same(info.dli_sname, "_exported_function") && info.dli_saddr == inside - 1);
  CHECK(dladdr(header, &info) == 1 && info.dli_fbase == header);
  info.dli_fname = "kept";
  CHECK(dladdr(reinterpret_cast<const void*>(&dladdr), &info) == 0 && same(info.dli_fname, "kept"));
  CHECK(dladdr(nullptr, &info) == 0);
}

GUEST_TEST(names_are_found_in_the_image_and_then_among_the_shims) {
  void* const program = dlopen(nullptr, 0);
  CHECK(program == reinterpret_cast<void*>(1) && dlclose(program) == 0);
  void* handles[] = {nullptr, program, reinterpret_cast<void*>(-2L), &handles};
  for (void* handle : handles) {
    CHECK(dlsym(handle, "exported_function") == reinterpret_cast<void*>(&exported_function));
    CHECK(dlsym(handle, "dlsym") == reinterpret_cast<void*>(&dlsym));
    CHECK(dlerror() == nullptr);
    CHECK(dlsym(handle, "no_such_name") == nullptr);
    CHECK(same(dlerror(), "symbol not found") && dlerror() == nullptr);
  }
  static char long_name[2048];
  memset(long_name, 'x', sizeof long_name - 1);
  CHECK(dlsym(nullptr, long_name) == nullptr && same(dlerror(), "symbol not found"));
}

GUEST_TEST(plug_ins_are_opened_by_a_part_of_their_path) {
  static constexpr struct {
    const char* path;
    bool fallback;
  } plug_ins[] = {
      {"/A/Velmora.app/Contents/PlugIns/GameControllerWrapper.bundle/Contents/MacOS/GameControllerWrapper", false},
      {"QKMacCore", true},
      {"lib/FPBundleWrapper.bundle", true},
      {"macOSControllerPlugin.dylib", true},
  };
  for (const auto& plug_in : plug_ins) {
    void* const handle = dlopen(plug_in.path, 5);
    CHECK(handle != nullptr && handle == dlopen(plug_in.path, 1) && dlerror() == nullptr);
    void* const function = dlsym(handle, "no_such_name");
    CHECK((function != nullptr) == plug_in.fallback);
    if (function != nullptr) CHECK(reinterpret_cast<uint64 (*)(int64, const char*)>(function)(7, "x") == 0);
    CHECK(plug_in.fallback ? dlerror() == nullptr : same(dlerror(), "symbol not found"));
    CHECK(dlsym(handle, "exported_function") != reinterpret_cast<void*>(&exported_function));
    CHECK(dlclose(handle) == 0 && (dlerror(), handle == dlopen(plug_in.path, 1)));
  }
  const auto* const version =
      static_cast<const double*>(dlsym(dlopen(plug_ins[0].path, 0), "GameControllerWrapperVersionNumber"));
  CHECK(version != nullptr && *version == 1.0);
  CHECK(dlopen("/usr/lib/libSystem.B.dylib", 1) == nullptr);
  CHECK(same(dlerror(), "image not found") && dlerror() == nullptr);
}

// Probes for the driver: each ends its process.
namespace {
int64 digits = 0;
void add_digit(void* digit) { digits = digits * 10 + reinterpret_cast<int64>(digit); }
}  // namespace

extern "C" {
/// Handlers run newest first and once; one that is registered by a handler runs too; the oldest sees the result.
int64 exit_with_handlers() {
  __cxa_atexit([](void*) { exit(digits == 3421 ? 77 : 66); }, nullptr, nullptr);  // an exit within the exit
  __cxa_atexit(add_digit, reinterpret_cast<void*>(1), nullptr);
  __cxa_atexit(add_digit, reinterpret_cast<void*>(2), nullptr);
  atexit([] { __cxa_atexit(add_digit, reinterpret_cast<void*>(4), nullptr); });
  __cxa_atexit(add_digit, reinterpret_cast<void*>(3), nullptr);
  exit(55);
}
/// 512 handlers are kept; the exit code counts them, less 500.
int64 exit_with_too_many_handlers() {
  __cxa_atexit([](void*) { exit(static_cast<int32>(digits - 500)); }, nullptr, nullptr);
  for (int i = 0; i < 600; ++i) {
    atexit([] { ++digits; });
  }
  exit(55);
}
int64 call_abort() { abort(); }
int64 smash_stack() { __stack_chk_fail(); }
}
