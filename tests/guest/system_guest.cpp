// Environment, process, system information, images and dynamic loading.
#include "darwin.h"
#include "sdk/darwin/sys/sysctl.h"

extern "C" {
int32 _NSGetExecutablePath(char*, uint32*), __cxa_atexit(void (*)(void*), void*, void*), backtrace(void**, int32),
    _availability_version_check(uint32, const void*), __darwin_check_fd_set_overflow(int32, const void*, int32),
    uname(void*), gethostname(char*, uint64), getrlimit(int32, uint64*), getrusage(int32, void*);
[[noreturn]] void __stack_chk_fail();
extern const uint64 __stack_chk_guard;
char** backtrace_symbols(void**, int32);
uint32 getegid(), _dyld_image_count();
const char *_dyld_get_image_header(uint32), *_dyld_get_image_name(uint32),
    *getsectiondata(const void*, const char*, const char*, uint64*);

/// Looked up by name below.
__attribute__((section("__DATA,__vlm_test"), used, visibility("default"))) char marked_data[24] = "marked";
int32 exported_function(int32 x) { return x + 1; }
}

static bool ends_with(const char* text, const char* end) {
  return strlen(text) >= strlen(end) && same(text + strlen(text) - strlen(end), end);
}

GUEST_TEST(what_getenv_returned_stays_as_it_was) {
  CHECK(getenv("VLM_TEST") == nullptr && setenv("VLM_TEST", "one \xC3\xA9", 0) == 0);
  const char* const one = getenv("VLM_TEST");
  CHECK(setenv("VLM_TEST", "two", 0) == 0 && same(getenv("VLM_TEST"), one));
  CHECK(setenv("VLM_TEST", "two", 1) == 0 && same(getenv("VLM_TEST"), "two") && same(one, "one \xC3\xA9"));
  CHECK(setenv("VLM_TEST", "", 1) == 0 && setenv("VLM_TEST", "three", 0) == 0 && same(getenv("VLM_TEST"), ""));
  CHECK(unsetenv("VLM_TEST") == 0 && getenv("VLM_TEST") == nullptr && unsetenv("VLM_TEST") == 0);
  CHECK(setenv("", "x", 1) == -1 && *__error() == EINVAL && unsetenv("A=B") == -1);
}

GUEST_TEST(folders_are_the_players_whatever_is_set) {
  CHECK(setenv("USERPROFILE", "C:\\Users\\Some One", 1) == 0);
  const char *const home = getenv("HOME"), *const temporary = getenv("TMPDIR");
  CHECK(same(home, "C:/Users/Some One") && setenv("HOME", "/tmp", 1) == 0 && getenv("HOME") == home);
  CHECK(temporary[1] == ':' && strstr(temporary, "\\") == nullptr && ends_with(temporary, "/"));
  char path[1024] = "\1";
  uint32 size = 4;
  CHECK(_NSGetExecutablePath(path, &size) == -1 && path[0] == 1);
  const uint32 needed = size--;
  CHECK(_NSGetExecutablePath(path, &size) == -1 && size == needed);
  CHECK(_NSGetExecutablePath(path, &size) == 0 && strlen(path) + 1 == needed && path[1] == ':');
  CHECK(ends_with(path, "/Velmora.app/Contents/MacOS/Velmora"));
}

GUEST_TEST(the_system_is_a_mac) {
  static constexpr struct {
    int32 name[2];
    uint64 size;
    const char* text;
    int32 sysconf_name;  // that tells the same; 0: none
  } rows[] = {{{1, 1}, 7, "Darwin", 0}, {{1, 2}, 7, "21.6.0", 0}, {{1, 21}, 16, nullptr, 0},
              {{6, 2}, 7, "x86_64", 0}, {{6, 3}, 4, nullptr, 57}, {{6, 25}, 4, nullptr, 58},
              {{6, 5}, 8, nullptr, 0},  {{6, 24}, 8, nullptr, 0}, {{6, 7}, 4, nullptr, 29}};
  uint64 values[9][3] = {}, length = 0;
  for (int32 i = 0; i < 9; ++i) {
    int32 name[] = {rows[i].name[0], rows[i].name[1]};
    CHECK(sysctl(name, 2, nullptr, &length, nullptr, 0) == 0 && length == rows[i].size);
    --length;
    CHECK(sysctl(name, 2, values[i], &length, nullptr, 0) == -1 && *__error() == ENOMEM && values[i][0] == 0);
    length = sizeof values[i];
    CHECK(sysctl(name, 2, values[i], &length, nullptr, 0) == 0 && length == rows[i].size);
    CHECK(rows[i].text == nullptr || same((const char*)values[i], rows[i].text));
    CHECK(rows[i].sysconf_name == 0 || sysconf(rows[i].sysconf_name) == (int64)values[i][0]);
  }
  CHECK(values[2][0] > 1'000'000'000 && values[2][0] <= (uint64)time(nullptr) && values[4][0] >= 1);
  CHECK(values[7][0] > (1L << 28) && values[7][0] == values[6][0] && values[8][0] == 4096);
  CHECK((uint64)sysconf(200) == values[7][0] / 4096 && sysconf(3) == 100 && sysconf(5) == 10240 && sysconf(-1) == -1);
  int32 unknown[] = {6, 1}, process[] = {1, 14, 1, 1234};
  char record[1281], host[256];
  memset(record, 1, sizeof record);
  CHECK(sysctl(unknown, 2, values, &length, nullptr, 0) == -1 && *__error() == ENOENT);
  length = 648;
  CHECK(sysctl(process, 4, record, &length, nullptr, 0) == 0 && length == 648 && record[647] == 0 && record[648] == 1);
  CHECK(uname(record) == 0 && same(record, "Darwin") && same(record + 512, "21.6.0") && record[1280] == 1);
  CHECK(same(record + 768, "Darwin Kernel Version 21.6.0") && same(record + 1024, "x86_64"));
  CHECK(gethostname(host, sizeof host) == 0 && *host && same(host, record + 256) && gethostname(host, 1) == -1);

  uint64 limits[3][2];
  CHECK(getrlimit(3, limits[0]) == 0 && getrlimit(8, limits[1]) == 0 && getrlimit(0, limits[2]) == 0);
  CHECK(limits[0][0] == 0x800000 && limits[0][1] == 0x800000 && limits[1][0] == 10240 && limits[2][0] == ~0UL >> 1);
  int64 usage[19];  // two times, and what nobody counts
  memset(usage, 1, sizeof usage);
  for (const uint64 start = clock(); clock() < start + 50'000;) {
  }
  CHECK(getrusage(0, usage) == 0 && usage[0] + (int32)usage[1] > 0 && usage[0] < 100'000 && usage[2] < 100'000);
  CHECK((int32)usage[1] < 1'000'000 && usage[17] == 0 && usage[18] == 0x0101'0101'0101'0101);

  void* frames[4];
  char** const symbols = backtrace_symbols(frames, backtrace(frames, 4) + 1);
  CHECK(symbols != nullptr && !symbols[0]);
  free(symbols);
  CHECK(__darwin_check_fd_set_overflow(1023, frames, 0) == 1 && __darwin_check_fd_set_overflow(1024, frames, 0) == 0);
  CHECK(_availability_version_check(1, frames) == 1 && __stack_chk_guard != 0);
  CHECK(geteuid() == 501 && getegid() == 20 && getpagesize() == 4096);
}

GUEST_TEST(the_image_finds_itself) {
  const char* const header = _dyld_get_image_header(0);
  CHECK(_dyld_image_count() == 1 && *reinterpret_cast<const uint32*>(header) == 0xFEEDFACF);
  CHECK(ends_with(_dyld_get_image_name(0), "/system_guest.dylib") && _dyld_get_image_header(1) == nullptr);
  uint64 size = 0;
  const auto section = [&](const char* segment) { return getsectiondata(header, segment, "__vlm_test", &size); };
  CHECK(section("__DATA") == marked_data && size == sizeof marked_data && section("__TEXT") == nullptr);

  Dl_info info{};
  const char* const inside = reinterpret_cast<const char*>(&exported_function) + 1;
  CHECK(dladdr(inside, &info) == 1 && info.dli_fname == _dyld_get_image_name(0) && info.dli_fbase == header);
  CHECK(same(info.dli_sname, "_exported_function") && info.dli_saddr == inside - 1);
  CHECK(dladdr(reinterpret_cast<const void*>(&dladdr), &info) == 0);

  void *const program = dlopen(nullptr, 0), *const handles[] = {nullptr, program, reinterpret_cast<void*>(-2L)};
  CHECK(program == reinterpret_cast<void*>(1) && dlclose(program) == 0);
  for (void* handle : handles) {
    CHECK(dlsym(handle, "exported_function") == reinterpret_cast<void*>(&exported_function));
    CHECK(dlsym(handle, "dlsym") == reinterpret_cast<void*>(&dlsym) && dlerror() == nullptr);
    CHECK(dlsym(handle, "no_such_name") == nullptr && same(dlerror(), "symbol not found") && dlerror() == nullptr);
  }
}

GUEST_TEST(plug_ins_are_opened_by_a_part_of_their_path) {
  static constexpr const char* plug_ins[] = {"/A/Velmora.app/Contents/PlugIns/GameControllerWrapper.bundle",
                                             "QKMacCore", "lib/FPBundleWrapper.bundle", "macOSControllerPlugin.dylib"};
  for (const auto& path : plug_ins) {
    void* const handle = dlopen(path, 5);
    CHECK(handle != nullptr && handle == dlopen(path, 1) && dlerror() == nullptr && dlclose(handle) == 0);
    const auto function = reinterpret_cast<uint64 (*)(int64, const char*)>(dlsym(handle, "exported_function"));
    CHECK((function == nullptr) == (path == plug_ins[0]));  // all others have one that does nothing
    CHECK(function == nullptr ? same(dlerror(), "symbol not found") : function(7, "x") == 0 && dlerror() == nullptr);
  }
  const void* const version = dlsym(dlopen(plug_ins[0], 0), "GameControllerWrapperVersionNumber");
  CHECK(version != nullptr && *static_cast<const double*>(version) == 1.0);
  CHECK(dlopen("/usr/lib/libSystem.B.dylib", 1) == nullptr && same(dlerror(), "image not found"));
}

// Probes for the driver: each ends its process.
static int64 digits = 0;
static void add_digit(void* digit) { digits = digits * 10 + reinterpret_cast<int64>(digit); }

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
  for (int i = 0; i < 600; ++i) atexit([] { ++digits; });
  exit(55);
}
int64 call_abort() { abort(); }
int64 smash_stack() { __stack_chk_fail(); }
}
