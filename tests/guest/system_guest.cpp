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
  char record[1281], text[400], host[256];
  uint64 length = 0, values[9][3] = {};
  const auto ask = [&](int32 major, int32 minor, void* value, uint64 room) {
    int32 name[] = {major, minor};
    length = room;
    return sysctl(name, 2, value, &length, nullptr, 0) == 0;
  };
  static constexpr int32 names[][3] = {
      // and the size of the answer
      {1, 1, 7}, {1, 2, 7}, {6, 2, 7}, {1, 21, 16}, {6, 3, 4}, {6, 25, 4}, {6, 5, 8}, {6, 24, 8}, {6, 7, 4}};
  for (int32 i = 0; i < 9; ++i) {
    const auto& [major, minor, size] = names[i];
    CHECK(ask(major, minor, nullptr, 0) && length == (uint64)size);
    CHECK(!ask(major, minor, values[i], size - 1) && *__error() == ENOMEM && values[i][0] == 0);
    CHECK(ask(major, minor, values[i], sizeof values[i]) && length == (uint64)size);
  }
  snprintf(text, sizeof text, "%s %s %s", (char*)values[0], (char*)values[1], (char*)values[2]);
  CHECK(same(text, "Darwin 21.6.0 x86_64") && !ask(6, 1, values, 8) && *__error() == ENOENT);
  CHECK(values[3][0] > 1'000'000'000 && values[3][0] <= (uint64)time(nullptr) && values[4][0] >= 1);
  CHECK(values[6][0] > (1L << 28) && values[7][0] == values[6][0] && values[8][0] == 4096);
  CHECK(sysconf(57) == (int64)values[4][0] && sysconf(58) == (int64)values[5][0] && sysconf(29) == 4096);
  CHECK(sysconf(200) == (int64)values[7][0] / 4096 && sysconf(3) == 100 && sysconf(5) == 10240 && sysconf(-1) == -1);
  memset(record, 1, sizeof record);
  CHECK(uname(record) == 0 && record[1280] == 1 && gethostname(host, sizeof host) == 0 && gethostname(host, 1) == -1);
  snprintf(text, sizeof text, "%s %d %s %s %s", record, same(host, record + 256), record + 512, record + 768,
           record + 1024);
  CHECK(same(text, "Darwin 1 21.6.0 Darwin Kernel Version 21.6.0 x86_64"));

  uint64 limits[3][2];
  CHECK(getrlimit(3, limits[0]) == 0 && getrlimit(8, limits[1]) == 0 && getrlimit(0, limits[2]) == 0);
  CHECK(limits[0][0] == 0x800000 && limits[0][1] == 0x800000 && limits[1][0] == 10240 && limits[2][0] == ~0UL >> 1);
  int64 usage[19];
  CHECK(getrusage(0, usage) == 0 && usage[0] < 100'000 && usage[17] == 0);
  void* frames[4];
  char** const symbols = backtrace_symbols(frames, backtrace(frames, 4) + 1);
  CHECK(symbols != nullptr && !symbols[0] && geteuid() == 501 && getegid() == 20 && getpagesize() == 4096);
  CHECK(__darwin_check_fd_set_overflow(1023, frames, 0) == 1 && __darwin_check_fd_set_overflow(1024, frames, 0) == 0);
  CHECK(_availability_version_check(1, frames) == 1 && __stack_chk_guard != 0);
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
    const auto function = reinterpret_cast<uint64 (*)(int64, const char*)>(dlsym(handle, "exported_function"));
    CHECK(handle != nullptr && handle == dlopen(path, 1) && dlclose(handle) == 0);
    CHECK(path == plug_ins[0] ? !function : function(7, "x") == 0);  // all others have one that does nothing
  }
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
int64 call_abort() { abort(); }
int64 smash_stack() { __stack_chk_fail(); }
}
