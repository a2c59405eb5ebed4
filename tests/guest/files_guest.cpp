// Files, descriptors, directories and mappings, called as compiled macOS code calls them, in a directory that the
// first test makes and the last removes.
#include "guest_test.h"

struct Time {
  int64 seconds, nanoseconds;
};
struct Stat {
  int32 device;
  unsigned short mode, link_count;
  uint64 inode;
  uint32 user, group;
  int32 special_device, padding;
  Time accessed, modified, changed, created;
  int64 size, blocks;
  int32 block_size;
  uint32 flags, generation;
  int32 spare;
  int64 more_spare[2];
};
struct Dirent {
  uint64 inode, seek_offset;
  unsigned short record_length, name_length;
  uint8 type;
  char name[1024];
};
struct Timeval {
  int64 seconds;
  int32 microseconds;
};
static_assert(sizeof(Stat) == 144 && sizeof(Dirent) == 1048 && sizeof(Timeval) == 16);

extern "C" {
struct Stream;
struct Directory;
extern Stream *__stdinp, *__stdoutp;
int32* __error();
void free(void*);
int32 strcmp(const char*, const char*);
uint64 strlen(const char*);
int32 memcmp(const void*, const void*, uint64);
int32 snprintf(char*, uint64, const char*, ...);

Stream* fopen(const char*, const char*);
int32 fclose(Stream*);
int32 fflush(Stream*);
uint64 fread(void*, uint64, uint64, Stream*);
uint64 fwrite(const void*, uint64, uint64, Stream*);
int32 fseek(Stream*, int64, int32);
int32 fseeko(Stream*, int64, int32);
int64 ftell(Stream*);
int64 ftello(Stream*);
void rewind(Stream*);

int32 open(const char*, int32, ...);
int32 close(int32);
int64 read(int32, void*, uint64);
int64 write(int32, const void*, uint64);
int64 lseek(int32, int64, int32);
int32 ftruncate(int32, int64);
int32 fcntl(int32, int32, ...);
int32 ioctl(int32, uint64, ...);
int32 dup(int32);
int32 dup2(int32, int32);
int32 pipe(int32*);
int32 isatty(int32);
int32 tcgetattr(int32, void*);
int32 tcsetattr(int32, int32, const void*);
int32 tcflush(int32, int32);
int32 fcopyfile(int32, int32, void*, uint32);

int32 stat(const char*, Stat*) asm("_stat$INODE64");
int32 lstat(const char*, Stat*) asm("_lstat$INODE64");
int32 fstat(int32, Stat*) asm("_fstat$INODE64");
int32 plain_stat(const char*, Stat*) asm("_stat");
int32 plain_lstat(const char*, Stat*) asm("_lstat");
int32 plain_fstat(int32, Stat*) asm("_fstat");
int32 access(const char*, int32);
int32 chmod(const char*, unsigned short);
int32 lchflags(const char*, uint32);
int32 utimes(const char*, const Timeval*);

int32 mkdir(const char*, unsigned short);
int32 rmdir(const char*);
int32 unlink(const char*);
int32 rename(const char*, const char*);
int32 link(const char*, const char*);
int32 symlink(const char*, const char*);
int64 readlink(const char*, char*, uint64);
char* getcwd(char*, uint64);
Directory* opendir(const char*) asm("_opendir$INODE64");
Dirent* readdir(Directory*) asm("_readdir$INODE64");
void rewinddir(Directory*) asm("_rewinddir$INODE64");
int32 closedir(Directory*);

uint8* mmap(void*, uint64, int32, int32, int32, int64);
int32 munmap(void*, uint64);
int32 mprotect(void*, uint64, int32);

int32 pthread_create(void**, const void*, void* (*)(void*), void*);
[[noreturn]] void exit(int32);

/// Tells how many handles the process has; set by the driver.
int64 (*open_handles)() = nullptr;
}

namespace {

constexpr int32 write_only = 1, read_write = 2, append = 0x8, create = 0x200, truncate = 0x400, exclusive = 0x800;
constexpr int32 e_perm = 1, e_noent = 2, e_badf = 9, e_nomem = 12, e_acces = 13, e_fault = 14, e_exist = 17,
                e_notdir = 20, e_isdir = 21, e_inval = 22, e_mfile = 24, e_notty = 25, e_spipe = 29, e_pipe = 32,
                e_range = 34, e_nametoolong = 63, e_notempty = 66;
constexpr int32 prot_read = 1, prot_write = 2, shared = 1, private_ = 2, fixed = 0x10, anonymous = 0x1000;

/// Did the call fail with this error number? Written around the call: fails_with(e_noent, [&] { return open(...); }).
template <class Call>
bool fails_with(int32 error, Call call) {
  *__error() = 0;
  return (int64)call() == -1 && *__error() == error;
}
template <class Call>
bool gives_null_with(int32 error, Call call) {
  *__error() = 0;
  return call() == nullptr && *__error() == error;
}

/// At the start of a test: what it opens, it closes, and what fails leaves nothing open.
struct LeavesNoHandle {
  int64 before = open_handles();
  ~LeavesNoHandle() {
    const int64 more = open_handles() - before;
    guest_test::check(more == 0, running_test, more, "handles more than at its start");
  }
};

/// The lowest free descriptor: the same before and after whatever must leak none.
int32 lowest_free() {
  const int32 number = open("files.tmp", 0);
  close(number);
  return number;
}

bool holds(const char* path, const char* text) {
  char buffer[256];
  const int32 file = open(path, 0);
  const int64 size = read(file, buffer, sizeof buffer);
  close(file);
  return size == (int64)strlen(text) && memcmp(buffer, text, size) == 0;
}

bool make_file(const char* path, const char* text) {
  const int32 file = open(path, write_only | create | truncate, 0644);
  const bool written = write(file, text, strlen(text)) == (int64)strlen(text);
  return close(file) == 0 && written;
}

char long_name[300];
char long_path[2048];

}  // namespace

GUEST_TEST(directories_are_made_once) {
  for (char& c : long_name) c = 'n';
  long_name[299] = '\0';
  mkdir("files.tmp", 0755);
  CHECK(fails_with(e_exist, [] { return mkdir("files.tmp", 0755); }));
  CHECK(fails_with(e_noent, [] { return mkdir("files.tmp/none/below", 0755); }));
  const int32 flags[] = {write_only, read_write | create, create | truncate, truncate};
  for (const int32 other : flags) {  // opens for reading all the same
    const int32 directory = open("files.tmp", other);
    Stat status;
    CHECK(fstat(directory, &status) == 0 && status.mode == 0x41ED && close(directory) == 0);
  }
  CHECK(fails_with(e_exist, [] { return open("files.tmp", create | exclusive); }));
}

GUEST_TEST(paths_that_name_nothing_fail_alike_everywhere_and_leak_nothing) {
  const LeavesNoHandle check;
  static Stat status;
  static const struct {
    const char* name;
    int64 (*call)(const char*);
  } calls[] = {
      {"open", [](const char* path) { return (int64)open(path, 0); }},
      {"stat", [](const char* path) { return (int64)stat(path, &status); }},
      {"lstat", [](const char* path) { return (int64)lstat(path, &status); }},
      {"plain stat", [](const char* path) { return (int64)plain_stat(path, &status); }},
      {"plain lstat", [](const char* path) { return (int64)plain_lstat(path, &status); }},
      {"access", [](const char* path) { return (int64)access(path, 0); }},
      {"utimes", [](const char* path) { return (int64)utimes(path, nullptr); }},
      {"rmdir", [](const char* path) { return (int64)rmdir(path); }},
      {"unlink", [](const char* path) { return (int64)unlink(path); }},
      {"rename", [](const char* path) { return (int64)rename(path, "files.tmp/x"); }},
      {"link", [](const char* path) { return (int64)link(path, "files.tmp/x"); }},
      {"fopen", [](const char* path) { return fopen(path, "r") ? 0l : -1l; }},
      {"opendir", [](const char* path) { return opendir(path && !*path ? "files.tmp/none" : path) ? 0l : -1l; }},
  };
  const struct {
    const char* path;
    int32 error;
  } paths[] = {{nullptr, e_fault}, {"", e_noent}, {"files.tmp/none", e_noent}, {long_name, e_nametoolong}};
  const int32 lowest = lowest_free();
  for (const auto& call : calls) {
    for (const auto& path : paths) {
      const bool as_expected = fails_with(path.error, [&] { return call.call(path.path); });
      guest_test::check(as_expected, call.name, path.error, path.path ? path.path : "null");
    }
  }
  CHECK(lowest_free() == lowest);
}

GUEST_TEST(numbers_that_are_not_open_fail_alike_everywhere) {
  const LeavesNoHandle check;
  static Stat status;
  static char byte;
  static int64 (*const calls[])(int32) = {
      [](int32 number) { return (int64)close(number); },
      [](int32 number) { return read(number, &byte, 1); },
      [](int32 number) { return write(number, &byte, 1); },
      [](int32 number) { return lseek(number, 0, 0); },
      [](int32 number) { return (int64)ftruncate(number, 0); },
      [](int32 number) { return (int64)fcntl(number, 3); },
      [](int32 number) { return (int64)dup(number); },
      [](int32 number) { return (int64)dup2(number, 9); },
      [](int32 number) { return (int64)fstat(number, &status); },
      [](int32 number) { return (int64)plain_fstat(number, &status); },
      [](int32 number) { return (int64)fcopyfile(number, 1, nullptr, 0); },
      [](int32 number) { return (int64)fcopyfile(1, number, nullptr, 0); },
      [](int32 number) { return (int64)mmap(nullptr, 1, prot_read, shared, number, 0); },
  };
  const int32 closed = open("files.tmp", 0);
  close(closed);
  for (int32 k = 0; k < (int32)(sizeof calls / sizeof *calls); ++k) {
    const int32 numbers[] = {-1, 4096, closed};
    for (const int32 number : numbers) {
      guest_test::check(fails_with(e_badf, [&] { return calls[k](number); }), "call", k, "is not refused with EBADF");
    }
  }
}

GUEST_TEST(open_flags_read_write_and_seek) {
  const LeavesNoHandle check;
  const char* path = "files.tmp/a";
  CHECK(make_file(path, "hello"));
  CHECK(fails_with(e_exist, [&] { return open(path, write_only | create | exclusive, 0644); }));
  int32 file = open(path, write_only | append);
  char unread;
  CHECK(fails_with(e_acces, [&] { return read(file, &unread, 1); }));
  CHECK(lseek(file, 0, 0) == 0 && write(file, " there\r\n\x1A", 9) == 9);
  CHECK(fcntl(file, 1) == 1 && fcntl(file, 2, 1) == 0 && fcntl(file, 3) == (write_only | append));
  CHECK(fcntl(file, 4, write_only) == 0 && fcntl(file, 3) == write_only && fcntl(file, 77) == 0);
  CHECK(lseek(file, 0, 0) == 0 && write(file, "H", 1) == 1);
  CHECK(close(file) == 0 && holds(path, "Hello there\r\n\x1A"));

  file = open(path, read_write);
  char buffer[8];
  CHECK(lseek(file, -2, 2) == 12 && read(file, buffer, 8) == 2 && read(file, buffer, 8) == 0);
  CHECK(lseek(file, -4, 1) == 10 && lseek(file, -1, 7) == 13 && lseek(file, 10, 0) == 10);
  CHECK(fails_with(e_inval, [&] { return lseek(file, -1, 0); }) && lseek(file, 0, 1) == 10);
  CHECK(ftruncate(file, 5) == 0 && fails_with(e_inval, [&] { return ftruncate(file, -1); }));
  CHECK(lseek(file, int64{5} << 30, 0) == int64{5} << 30 && read(file, buffer, 8) == 0);
  CHECK(fails_with(e_fault, [&] { return read(file, nullptr, 1); }) && read(file, nullptr, 0) == 0);
  CHECK(fails_with(e_notty, [&] { return ioctl(file, 0x40087468, buffer); }) && isatty(file) == 0);
  CHECK(close(file) == 0 && holds(path, "Hello"));
  CHECK(fails_with(e_acces, [&] { return file = open(path, 0), write(file, "x", 1); }) && close(file) == 0);
  CHECK(close(open(path, truncate)) == 0 && holds(path, ""));
  CHECK(fails_with(e_isdir, [&] { return file = open("files.tmp", 0), read(file, buffer, 8); }) && close(file) == 0);
}

GUEST_TEST(duplicates_share_a_position_and_standard_numbers_are_kept_free) {
  CHECK(make_file("files.tmp/a", "abcdef"));
  const int32 file = open("files.tmp/a", 0);
  const int32 copy = dup(file);
  char c = 0;
  CHECK(copy > file && read(file, &c, 1) == 1 && read(copy, &c, 1) == 1 && c == 'b');
  CHECK(dup2(file, file) == file && dup2(file, copy) == copy && dup2(file, 4000) == 4000);
  CHECK(close(file) == 0 && read(4000, &c, 1) == 1 && c == 'c' && read(copy, &c, 1) == 1 && c == 'd');
  CHECK(fails_with(e_badf, [&] { return dup2(copy, 4096); }) && fails_with(e_badf, [&] { return dup2(copy, -1); }));

  Stat status;
  CHECK(fstat(0, &status) == 0 && status.mode == 0x2190 && status.block_size == 4096 && status.user == 0);
  const int32 saved = dup(0);
  CHECK(close(0) == 0 && fails_with(e_badf, [] { return close(0); }));
  *__error() = 0;
  CHECK(isatty(0) == 0 && *__error() == e_badf && lowest_free() >= 3);
  CHECK(dup2(copy, 0) == 0 && read(0, &c, 1) == 1 && c == 'e');
  CHECK(close(copy) == 0 && close(4000) == 0);
  if (saved >= 0) CHECK(dup2(saved, 0) == 0 && close(saved) == 0);
  CHECK(fails_with(e_notty, [] { return tcgetattr(1, nullptr); }) && tcflush(1, 0) == 0);
  CHECK(fails_with(e_notty, [] { return tcsetattr(1, 0, nullptr); }));
}

GUEST_TEST(a_full_table_refuses_and_recovers) {
  const LeavesNoHandle check;
  const int32 lowest = lowest_free();
  int32 last = -1;
  for (int32 number; (number = open("files.tmp", 0)) >= 0;) last = number;
  CHECK(last == 4095 && *__error() == e_mfile);
  int32 ends[2];
  CHECK(fails_with(e_mfile, [] { return dup(1); }) && fails_with(e_mfile, [&] { return pipe(ends); }));
  CHECK(close(last) == 0 && fails_with(e_mfile, [&] { return pipe(ends); }) && lowest_free() == last);
  while (--last >= lowest) close(last);
  CHECK(lowest_free() == lowest);
}

GUEST_TEST(pipes_carry_bytes_between_threads_until_an_end_closes) {
  int32 ends[2];
  CHECK(fails_with(e_fault, [] { return pipe(nullptr); }) && pipe(ends) == 0);
  Stat status;
  CHECK(fstat(ends[0], &status) == 0 && status.mode == 0x1180 && fcntl(ends[1], 3) == write_only);
  CHECK(fails_with(e_spipe, [&] { return lseek(ends[0], 0, 0); }));
  void* thread;
  const auto writer = [](void* argument) -> void* {
    static uint8 block[100'000];  // more than the pipe holds
    for (uint32 k = 0; k < sizeof block; ++k) block[k] = (uint8)(k * 7);
    const int32 end = *static_cast<int32*>(argument);
    for (uint64 done = 0; done < sizeof block;) done += write(end, block + done, sizeof block - done);
    close(end);
    return nullptr;
  };
  CHECK(pthread_create(&thread, nullptr, writer, &ends[1]) == 0);
  uint8 buffer[3000];
  uint32 total = 0;
  bool intact = true;
  for (int64 size; (size = read(ends[0], buffer, sizeof buffer)) > 0;) {
    for (int64 k = 0; k < size; ++k) intact = intact && buffer[k] == (uint8)(total++ * 7);
  }
  CHECK(total == 100'000 && intact && read(ends[0], buffer, 1) == 0 && close(ends[0]) == 0);
  CHECK(pipe(ends) == 0 && close(ends[0]) == 0 && fails_with(e_pipe, [&] { return write(ends[1], "x", 1); }));
  CHECK(close(ends[1]) == 0);
}

GUEST_TEST(status_access_and_times) {
  const char* path = "files.tmp/s";
  CHECK(make_file(path, "0123456789"));
  const Timeval times[2] = {{1'000'000'000, 0}, {1'500'000'000, 250'000}};
  CHECK(utimes(path, times) == 0);
  Stat by_path, by_number;
  const int32 file = open(path, 0);
  CHECK(stat(path, &by_path) == 0 && fstat(file, &by_number) == 0 && close(file) == 0);
  const Stat* const both[] = {&by_path, &by_number};
  for (const Stat* status : both) {
    CHECK(status->device == 1 && status->mode == 0x81A4 && status->link_count == 1 && status->user == 501);
    CHECK(status->group == 20 && status->size == 10 && status->blocks == 1 && status->block_size == 4096);
    CHECK(status->modified.seconds == 1'500'000'000 && status->modified.nanoseconds == 250'000'000);
    CHECK(status->changed.seconds == 1'500'000'000 && status->accessed.seconds == 1'000'000'000);
  }
  uint64 hash = 0x14650FB0739D0383;
  for (const char* c = path; *c; ++c) hash = (hash ^ (uint8)*c) * 0x100000001B3;
  CHECK(by_path.inode == hash && by_number.inode != 0);
  CHECK(fails_with(e_fault, [&] { return stat(path, nullptr); }));
  const Timeval long_ago[2] = {{-1, 0}, {0, 0}};
  CHECK(utimes(path, long_ago) == 0 && lstat(path, &by_path) == 0);
  CHECK(by_path.accessed.seconds == 0 && by_path.modified.seconds == 0 && by_path.modified.nanoseconds == 0);
  CHECK(utimes("files.tmp", nullptr) == 0 && stat("files.tmp", &by_path) == 0);
  CHECK(by_path.mode == 0x41ED && by_path.modified.seconds > 1'600'000'000);
  CHECK(access(path, 7) == 0 && chmod(path, 0) == 0 && lchflags(path, 1) == 0 && access(path, 2) == 0);
}

GUEST_TEST(names_beyond_ascii_long_ones_and_those_behind_a_macos_prefix) {
  char path[1200], here[600];
  CHECK(getcwd(here, sizeof here) == here && here[1] == ':' && here[2] == '/');
  CHECK(gives_null_with(e_range, [&] { return getcwd(here, 4); }));
  char* allocated = getcwd(nullptr, 0);
  CHECK(allocated && strcmp(allocated, here) == 0);
  free(allocated);
  snprintf(path, sizeof path, "/Users/me/Library/%s/files.tmp/Größe-日本-\xF0\x9F\x8E\xAE", here);
  CHECK(make_file(path, "x") && holds("files.tmp/Größe-日本-\xF0\x9F\x8E\xAE", "x") && unlink(path) == 0);

  snprintf(long_path, sizeof long_path, "files.tmp");
  uint64 lengths[5];
  for (uint64& length : lengths) {
    length = strlen(long_path);
    snprintf(long_path + length, sizeof long_path - length, "/%.100s", long_name);
    CHECK(mkdir(long_path, 0755) == 0);
  }
  const uint64 end = strlen(long_path);
  snprintf(long_path + end, sizeof long_path - end, "/file");
  CHECK(make_file(long_path, "deep") && holds(long_path, "deep"));
  Stream* stream = fopen(long_path, "r");
  CHECK(stream && fclose(stream) == 0 && unlink(long_path) == 0);
  long_path[end] = '\0';
  Directory* directory = opendir(long_path);
  CHECK(directory && closedir(directory) == 0);
  for (int32 k = 4; k >= 0; --k) {
    CHECK(rmdir(long_path) == 0);
    long_path[lengths[k]] = '\0';
  }
}

GUEST_TEST(directory_streams_number_their_entries_from_one) {
  const LeavesNoHandle check;
  CHECK(make_file("files.tmp/a", "") && mkdir("files.tmp/sub", 0755) == 0 && make_file("files.tmp/sub/ü", ""));
  CHECK(gives_null_with(e_notdir, [] { return opendir("files.tmp/a"); }));
  CHECK(gives_null_with(e_noent, [] { return opendir("files.tmp/a/b"); }));
  CHECK(fails_with(e_notempty, [] { return rmdir("files.tmp/sub"); }));
  Directory* directory = opendir("files.tmp/sub/");
  for (int32 round = 0; round < 2; ++round) {
    uint64 count = 0;
    int32 seen = 0;
    *__error() = 0;
    while (const Dirent* entry = readdir(directory)) {
      CHECK(entry->inode == ++count && entry->seek_offset == count && entry->record_length == 1048);
      CHECK(entry->name_length == strlen(entry->name));
      if (strcmp(entry->name, "ü") == 0 && entry->type == 8) seen |= 1;
      if (strcmp(entry->name, ".") == 0 && entry->type == 4) seen |= 2;
      if (strcmp(entry->name, "..") == 0 && entry->type == 4) seen |= 4;
    }
    CHECK(count == 3 && seen == 7 && *__error() == 0 && readdir(directory) == nullptr);
    rewinddir(directory);
  }
  CHECK(readdir(directory) != nullptr);  // and abandoned
  CHECK(closedir(directory) == 0 && fails_with(e_badf, [] { return closedir(nullptr); }));
  directory = opendir("");  // the current directory
  bool here = false;
  while (const Dirent* entry = readdir(directory)) here = here || strcmp(entry->name, "files.tmp") == 0;
  CHECK(here && closedir(directory) == 0);
  CHECK(unlink("files.tmp/sub/ü") == 0 && rmdir("files.tmp/sub") == 0);
}

GUEST_TEST(links_and_copies) {
  CHECK(make_file("files.tmp/a", "shared") && link("files.tmp/a", "files.tmp/b") == 0);
  CHECK(fails_with(e_exist, [] { return link("files.tmp/a", "files.tmp/b"); }) && holds("files.tmp/b", "shared"));
  CHECK(unlink("files.tmp/a") == 0 && holds("files.tmp/b", "shared"));
  CHECK(fails_with(e_perm, [] { return symlink("files.tmp/b", "files.tmp/a"); }));
  CHECK(fails_with(e_inval, [] { return readlink("files.tmp/b", long_path, 10); }));
  const int32 from = open("files.tmp/b", 0), to = open("files.tmp/c", write_only | create);
  CHECK(lseek(from, 3, 0) == 3 && write(to, "<", 1) == 1 && fcopyfile(from, to, nullptr, 0) == 0);
  CHECK(close(from) == 0 && close(to) == 0 && holds("files.tmp/c", "<shared"));
  const int32 itself = open("files.tmp/c", read_write), end = open("files.tmp/c", write_only);
  CHECK(lseek(end, 0, 2) == 7 && fcopyfile(itself, end, nullptr, 0) == 0);
  CHECK(close(itself) == 0 && close(end) == 0 && holds("files.tmp/c", "<shared<shared"));
  CHECK(rename("files.tmp/b", "files.tmp/c") == 0 && holds("files.tmp/c", "shared") && unlink("files.tmp/c") == 0);
}

GUEST_TEST(streams_are_binary_and_seek_in_64_bits) {
  const LeavesNoHandle check;
  Stream* stream = fopen("files.tmp/a", "wt");
  CHECK(fwrite("a\nb\r\n\x1Az", 1, 7, stream) == 7 && ftell(stream) == 7 && fclose(stream) == 0);
  CHECK(holds("files.tmp/a", "a\nb\r\n\x1Az"));
  stream = fopen("files.tmp/a", "r+");
  char buffer[16];
  CHECK(fread(buffer, 1, 16, stream) == 7 && fseek(stream, -1, 2) == 0 && fread(buffer, 1, 1, stream) == 1);
  CHECK(buffer[0] == 'z' && fseeko(stream, int64{1} << 33, 0) == 0 && ftello(stream) == int64{1} << 33);
  CHECK(fails_with(e_inval, [&] { return fseek(stream, 0, 7); }));
  CHECK(gives_null_with(e_exist, [] { return fopen("files.tmp/a", "wx"); }));
  Stream* created = fopen("files.tmp/x", "w+x");
  CHECK(fwrite("x", 1, 1, created) == 1 && fseek(created, 0, 0) == 0 && fread(buffer, 1, 2, created) == 1);
  CHECK(fclose(created) == 0 && unlink("files.tmp/x") == 0);
  rewind(stream);
  CHECK(ftell(stream) == 0 && fwrite("A", 1, 1, stream) == 1 && fflush(stream) == 0);
  CHECK(fread(buffer, uint64{1} << 63, 2, stream) == 0 && fclose(stream) == 0 && holds("files.tmp/a", "A\nb\r\n\x1Az"));
  const char* const bad_modes[] = {"", "q", "t"};
  for (const char* mode : bad_modes) CHECK(gives_null_with(e_inval, [&] { return fopen("files.tmp/a", mode); }));
}

GUEST_TEST(mapped_files) {
  const LeavesNoHandle check;
  CHECK(make_file("files.tmp/m", "0123456789"));
  const int32 file = open("files.tmp/m", read_write);
  uint8* view = mmap(nullptr, 4096, prot_read, shared, file, 0);
  CHECK(memcmp(view, "0123456789\0", 11) == 0 && munmap(view, 4096) == 0);
  view = mmap(nullptr, 10, prot_read | prot_write, private_, file, 0);
  view[0] = 'p';
  CHECK(holds("files.tmp/m", "0123456789") && munmap(view, 10) == 0);
  view = mmap(nullptr, 10, prot_read | prot_write, shared, file, 0);
  view[0] = 's';
  CHECK(munmap(view, 10) == 0 && holds("files.tmp/m", "s123456789"));
  CHECK(fails_with(e_inval, [&] { return mmap(nullptr, 0, prot_read, shared, file, 0); }));
  CHECK(fails_with(e_inval, [&] { return mmap(nullptr, 1, prot_read, shared, file, -65536); }));
  const int64 offsets[] = {10, 4096, 65536};
  for (const int64 offset : offsets) {
    CHECK(fails_with(e_nomem, [&] { return mmap(nullptr, 1, prot_read, shared, file, offset); }));
  }
  CHECK(close(file) == 0 && unlink("files.tmp/m") == 0);
}

GUEST_TEST(anonymous_memory_is_remade_given_up_and_protected_in_parts) {
  constexpr uint64 size = 65536, page = 4096;
  const int32 both = prot_read | prot_write;
  uint8* region = mmap(nullptr, size, both, private_ | anonymous, -1, 0);
  for (uint64 k = 0; k < size; k += page) region[k] = 1;
  CHECK(mmap(region + page, page, both, private_ | anonymous | fixed, -1, 0) == region + page);
  CHECK(region[0] == 1 && region[page] == 0 && region[2 * page] == 1);
  CHECK(munmap(region + size / 2, size / 2) == 0 && region[page * 7] == 1);
  CHECK(mprotect(region + size / 2, page, both) == 0 && region[size / 2] == 0);
  CHECK(mprotect(region, page, prot_read) == 0 && region[0] == 1 && mprotect(region, page, both) == 0);
  CHECK(fails_with(e_inval, [&] { return mprotect(region, ~uint64{0}, both); }));
  region[0] = 2;
  CHECK(munmap(region, size) == 0 && munmap(region, size) == 0);
  CHECK(mmap(region + page, page, both, private_ | anonymous | fixed, -1, 0) == region + page);
  region[page] = 3;
  CHECK(munmap(region + page, page) == 0);
  CHECK(mmap(region, size, both, private_ | anonymous | fixed, -1, 0) == region && munmap(region, size) == 0);
  CHECK(fails_with(e_inval, [&] { return mmap(region + 1, 1, both, private_ | anonymous | fixed, -1, 0); }));
  CHECK(fails_with(e_nomem, [&] { return mmap(nullptr, uint64{1} << 60, both, private_ | anonymous, -1, 0); }));
}

GUEST_TEST(nothing_stays_open) {
  CHECK(unlink("files.tmp/a") == 0 && unlink("files.tmp/s") == 0);
  CHECK(rmdir("files.tmp") == 0 && fails_with(e_noent, [] { return rmdir("files.tmp"); }));
}

// A probe for the driver.
extern "C" int64 exit_with_an_open_stream() {
  fwrite("flushed", 1, 7, fopen("exit.tmp", "w"));
  exit(5);
}
