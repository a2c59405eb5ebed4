// Files, descriptors, directories and mappings, called as compiled macOS code calls them, in a directory that a test
// makes and the last one removes.
#include "darwin_threads.h"
#include "sdk/darwin/sys/ioctl.h"

static_assert(sizeof(struct stat) == 144 && sizeof(dirent) == 1048 && sizeof(timeval) == 16);

extern "C" {
int32 fseeko(FILE*, int64, int32), dup(int32), dup2(int32, int32), pipe(int32*), tcgetattr(int32, void*),
    tcsetattr(int32, int32, const void*), tcflush(int32, int32), fcopyfile(int32, int32, void*, uint32),
    lchflags(const char*, uint32), link(const char*, const char*), symlink(const char*, const char*);
int64 ftello(FILE*);
int32 plain_stat(const char*, struct stat*) asm("_stat");
int32 plain_lstat(const char*, struct stat*) asm("_lstat");
int32 plain_fstat(int32, struct stat*) asm("_fstat");

// Set by the driver: how many handles the process has, and an export of a Windows module.
int64 (*open_handles)() = nullptr;
void* (*windows_symbol)(const char* module, const char* name) = nullptr;
}

namespace {

/// Did the call with this result fail with this error number?
template <class Result>
bool fails(int32 error, Result result) {
  const bool failed = (int64)result == -1 || (__is_pointer(Result) && !result), right = *__error() == error;
  *__error() = 0;  // the next one has to set it
  return failed && right;
}

int64 handles_at_start;

/// The lowest free descriptor: the same before and after whatever must leak none.
int32 lowest_free() {
  const int32 number = open("files.tmp", 0);
  close(number);
  return number;
}

uint8* map(void* at, uint64 size, int32 protection, int32 flags, int32 file, int64 offset = 0) {
  return static_cast<uint8*>(mmap(at, size, protection, flags, file, offset));
}

bool holds(const char* path, const char* text) {
  char buffer[256] = "";
  const int32 file = open(path, 0);
  read(file, buffer, sizeof buffer);
  return close(file) == 0 && same(buffer, text);
}

bool make_file(const char* path, const char* text) {
  const int32 file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const bool written = write(file, text, strlen(text)) == (int64)strlen(text);
  return close(file) == 0 && written;
}

struct stat status;
char long_name[300], long_path[2048], path[2048], buffer[16];

}  // namespace

GUEST_TEST(pipes_carry_bytes_between_threads_until_an_end_closes) {
  int32 ends[2];
  CHECK(fails(EFAULT, pipe(nullptr)) && pipe(ends) == 0 && fcntl(ends[1], 3) == O_WRONLY);
  CHECK(fstat(ends[0], &status) == 0 && status.st_mode == 0x1180 && fails(ESPIPE, lseek(ends[0], 0, 0)));
  static uint8 sent[100'000], received[100'000];  // more than the pipe holds
  for (uint32 k = 0; k < sizeof sent; ++k) sent[k] = (uint8)(k * 7);
  Crew writer(1, [&](int64) {
    for (uint64 done = 0; done < sizeof sent;) done += write(ends[1], sent + done, sizeof sent - done);
    close(ends[1]);
  });
  uint64 total = 0;
  for (int64 size; (size = read(ends[0], received + total, sizeof received - total)) > 0;) total += size;
  CHECK(total == sizeof sent && memcmp(sent, received, total) == 0);
  writer.join();
  CHECK(close(ends[0]) == 0 && pipe(ends) == 0 && close(ends[0]) == 0);
  CHECK(fails(EPIPE, write(ends[1], "x", 1)) && close(ends[1]) == 0);
}

GUEST_TEST(duplicates_share_a_position_and_standard_numbers_are_kept_free) {
  CHECK(mkdir("files.tmp", 0755) == 0 && make_file("files.tmp/a", "abcdef"));
  CHECK(fstat(0, &status) == 0 && status.st_mode == 0x2190);
  const int32 file = open("files.tmp/a", 0), copy = dup(file), saved = dup(0);
  char c = 0;
  CHECK(copy > file && read(file, &c, 1) == 1 && read(copy, &c, 1) == 1 && c == 'b');
  CHECK(dup2(file, file) == file && dup2(file, 4000) == 4000 && close(file) == 0 && read(4000, &c, 1) == 1 && c == 'c');
  CHECK(close(0) == 0 && fails(EBADF, close(0)) && isatty(0) == 0 && lowest_free() >= 3);
  CHECK(dup2(copy, 0) == 0 && read(0, &c, 1) == 1 && c == 'd' && close(copy) == 0 && close(4000) == 0);
  CHECK(saved < 0 ? close(0) == 0 : dup2(saved, 0) == 0 && close(saved) == 0);
}

GUEST_TEST(what_names_nothing_fails_alike_everywhere_and_leaks_nothing) {
  handles_at_start = open_handles();
  memset(long_name, 'n', sizeof long_name - 1);
  CHECK(fails(EEXIST, mkdir("files.tmp", 0755)) && fails(ENOENT, mkdir("files.tmp/none/below", 0755)));
  CHECK(fails(EEXIST, open("files.tmp", O_CREAT | O_EXCL)) && fails(ENOENT, stat("", &status)));
  const int32 directory = open("files.tmp", O_RDWR | O_CREAT | O_TRUNC);  // opens for reading all the same
  CHECK(fstat(directory, &status) == 0 && status.st_mode == 0x41ED);
  CHECK(fails(EISDIR, read(directory, buffer, 8)) && close(directory) == 0);
  const int32 lowest = lowest_free(), numbers[] = {-1, 4096, lowest};
  const struct {
    const char* path;
    int32 error;
  } paths[] = {{nullptr, EFAULT}, {"files.tmp/none", ENOENT}, {long_name, ENAMETOOLONG}, {"files.tmp/s:", ENOENT}};
  for (const auto& [path, error] : paths) {
    CHECK(fails(error, open(path, 0)) && fails(error, fopen(path, "r")) && fails(error, opendir(path)));
    CHECK(fails(error, stat(path, &status)) && fails(error, lstat(path, &status)) && fails(error, unlink(path)));
    CHECK(fails(error, plain_stat(path, &status)) && fails(error, plain_lstat(path, &status)));
    CHECK(fails(error, utimes(path, nullptr)) && fails(error, rmdir(path)));
    CHECK(fails(error, rename(path, "x")) && fails(error, link(path, "x")));
  }
  for (const int32 number : numbers) {
    CHECK(fails(EBADF, close(number)) && fails(EBADF, fcntl(number, 3)) && fails(EBADF, read(number, buffer, 1)));
    CHECK(fails(EBADF, dup2(number, 9)) && fails(EBADF, plain_fstat(number, &status)));
    CHECK(fails(EBADF, fcopyfile(number, 1, nullptr, 0)) && fails(EBADF, fcopyfile(1, number, nullptr, 0)));
    CHECK(fails(EBADF, map(nullptr, 1, PROT_READ, MAP_SHARED, number)));
  }
  CHECK(fails(EBADF, dup2(1, 4096)) && lowest_free() == lowest);
}

GUEST_TEST(names_that_windows_reads_otherwise_are_names_of_files) {
  static const char* const names[] = {"NUL", "aux.txt", "Lpt9.dat", "nul .x", "save.", "save ", "...", "CONIN$"};
  char other[100];
  const auto is_listed = [](const char* name) {
    DIR* const directory = opendir("files.tmp/aux");
    bool found = false;
    while (const dirent* entry = readdir(directory)) found = found || same(entry->d_name, name);
    return closedir(directory) == 0 && found;
  };
  CHECK(mkdir("files.tmp/aux", 0755) == 0);
  for (const char* name : names) {
    snprintf(path, sizeof path, "files.tmp/./aux/none/../%s", name);
    snprintf(other, sizeof other, "files.tmp/aux/%s.", name);
    CHECK(make_file(path, name) && is_listed(name) && rename(path, other) == 0 && !is_listed(name));
    CHECK(holds(other, name) && access("files.tmp/aux/save", 0) != 0 && fclose(fopen(other, "a")) == 0);
    CHECK(stat(other, &status) == 0 && status.st_mode == 0x81A4 && unlink(other) == 0);
  }
  CHECK(rmdir("files.tmp/aux") == 0);
}

/// The build has made the link to a directory; elsewhere there may be none.
GUEST_TEST(a_link_to_a_directory_is_a_directory) {
  using Attributes = uint32 __attribute__((ms_abi)) (const char*);
  if (((Attributes*)windows_symbol("kernel32.dll", "GetFileAttributesA"))("link_to_guests") == ~0u) return;
  CHECK(stat("link_to_guests", &status) == 0 && status.st_mode == 0x41ED);
  CHECK(lstat("link_to_guests", &status) == 0 && status.st_mode == 0xA1ED);
}

GUEST_TEST(a_file_that_is_open_is_replaced_and_read_on) {
  CHECK(make_file("files.tmp/a", "old") && make_file("files.tmp/b", "new"));
  FILE* const stream = fopen("files.tmp/a", "r");
  const bool replaced = rename("files.tmp/b", "files.tmp/a") == 0;  // not by every host
  CHECK((replaced || *__error() == EACCES) && holds("files.tmp/a", replaced ? "new" : "old"));
  CHECK((access("files.tmp/b", 0) == 0) != replaced && (replaced || unlink("files.tmp/b") == 0));
  CHECK(fread(buffer, 1, 4, stream) == 3 && memcmp(buffer, "old", 3) == 0);
  CHECK(unlink("files.tmp/a") == 0 && fclose(stream) == 0 && make_file("files.tmp/a", "file"));
  CHECK(mkdir("files.tmp/b", 0755) == 0 && fails(ENOTDIR, rename("files.tmp/b", "files.tmp/a")));
  CHECK(rmdir("files.tmp/b") == 0);
}

GUEST_TEST(open_flags_read_write_and_seek) {
  const char* const path = "files.tmp/a";
  CHECK(make_file(path, "hello") && fails(EINVAL, readlink(path, buffer, 8)));
  CHECK(fails(EEXIST, open(path, O_WRONLY | O_CREAT | O_EXCL, 0644)));
  int32 file = open(path, O_WRONLY | O_APPEND);
  CHECK(fails(EACCES, read(file, buffer, 1)) && lseek(file, 0, 0) == 0);
  CHECK(write(file, " there\r\n\x1A", 9) == 9 && fcntl(file, 3) == (O_WRONLY | O_APPEND));
  CHECK(fcntl(file, 4, O_WRONLY) == 0 && fcntl(file, 3) == O_WRONLY && fcntl(file, 2, 1) == 0 && fcntl(file, 1) == 1);
  struct flock lock = {0, 0, 1, F_WRLCK, 0};
  CHECK(fcntl(file, F_GETLK, &lock) == 0 && lock.l_type == F_UNLCK);
  CHECK(fcntl(file, F_DUPFD, 100) == 100 && fcntl(file, F_DUPFD, 100) == 101 && close(100) == 0 && close(101) == 0);
  CHECK(lseek(file, 0, 0) == 0 && write(file, "H", 1) == 1 && holds(path, "Hello there\r\n\x1A") && close(file) == 0);

  file = open(path, O_RDWR);
  CHECK(lseek(file, -2, 2) == 12 && read(file, buffer, 8) == 2 && read(file, buffer, 8) == 0);
  CHECK(lseek(file, -4, 1) == 10 && fails(EINVAL, lseek(file, -1, 0)) && lseek(file, 0, 1) == 10);
  CHECK(ftruncate(file, 5) == 0 && lseek(file, int64{5} << 30, 0) == int64{5} << 30 && read(file, buffer, 8) == 0);
  CHECK(fails(EFAULT, read(file, nullptr, 1)) && fails(ENOTTY, ioctl(file, 0x40087468, buffer)) && isatty(file) == 0);
  CHECK(fails(ENOTTY, tcgetattr(file, buffer)) && fails(ENOTTY, tcsetattr(file, 0, buffer)) && tcflush(file, 0) == 0);
  CHECK(close(file) == 0 && holds(path, "Hello"));
  CHECK(fails(EACCES, write(file = open(path, 0), "x", 1)) && close(file) == 0);
  CHECK(close(open(path, O_TRUNC)) == 0 && holds(path, ""));
}

GUEST_TEST(a_full_table_refuses_and_recovers) {
  const int32 lowest = lowest_free();
  int32 last = -1, ends[2];
  for (int32 number; (number = open("files.tmp", 0)) >= 0;) last = number;
  CHECK(last == 4095 && *__error() == EMFILE && fails(EMFILE, dup(1)));
  CHECK(close(last) == 0 && fails(EMFILE, pipe(ends)) && lowest_free() == last);
  while (--last >= lowest) close(last);
  CHECK(lowest_free() == lowest);
}

GUEST_TEST(status_access_and_times) {
  const char* const path = "files.tmp/s";
  const timeval times[2] = {{1'000'000'000, 0}, {1'500'000'000, 250'000}}, long_ago[2] = {{-1, 0}, {0, 0}};
  CHECK(make_file(path, "0123456789") && utimes(path, times) == 0 && stat(path, &status) == 0);
  char text[200];
  snprintf(text, sizeof text, "%d %o %d %llx %u %u %lld %lld %d %ld %ld.%ld", status.st_dev, status.st_mode,
           status.st_nlink, status.st_ino, status.st_uid, status.st_gid, status.st_size, status.st_blocks,
           status.st_blksize, status.st_atimespec.tv_sec, status.st_mtimespec.tv_sec, status.st_mtimespec.tv_nsec);
  CHECK(same(text, "1 100644 1 3d805010e6e9523f 501 20 10 1 4096 1000000000 1500000000.250000000"));
  CHECK(utimes(path, long_ago) == 0 && lstat(path, &status) == 0 && status.st_mtimespec.tv_sec == 0);
  CHECK(utimes(path, nullptr) == 0 && stat(path, &status) == 0 && status.st_mtimespec.tv_sec > 1'600'000'000);
  CHECK(access(path, 7) == 0 && chmod(path, 0) == 0 && lchflags(path, 1) == 0 && access(path, 2) == 0);
}

GUEST_TEST(names_beyond_ascii_long_ones_and_those_behind_a_macos_prefix) {
  char here[600];
  CHECK(getcwd(here, sizeof here) == here && here[1] == ':' && here[2] == '/' && same(getcwd(nullptr, 0), here));
  CHECK(fails(ERANGE, getcwd(long_path, 4)));
  snprintf(path, sizeof path, "/Users/me/Library/%s/files.tmp/Größe-日本-\xF0\x9F\x8E\xAE", here);
  CHECK(make_file(path, "x") && holds("files.tmp/Größe-日本-\xF0\x9F\x8E\xAE", "x") && unlink(path) == 0);

  snprintf(long_path, sizeof long_path, "files.tmp");
  for (int32 depth = 0; depth < 5; ++depth) {
    snprintf(long_path + strlen(long_path), 102, "/%.100s", long_name);
    CHECK(mkdir(long_path, 0755) == 0);
  }
  snprintf(path, sizeof path, "%s/file", long_path);
  CHECK(make_file(path, "deep") && holds(path, "deep") && fclose(fopen(path, "r")) == 0 && unlink(path) == 0);
  CHECK(closedir(opendir(long_path)) == 0);
  for (; strlen(long_path) > 9; *strrchr(long_path, '/') = '\0') CHECK(rmdir(long_path) == 0);
}

GUEST_TEST(directory_streams_number_their_entries_from_one) {
  CHECK(make_file("files.tmp/a", "") && mkdir("files.tmp/sub", 0755) == 0 && make_file("files.tmp/sub/ü", ""));
  CHECK(fails(ENOTDIR, opendir("files.tmp/a")) && fails(ENOTEMPTY, rmdir("files.tmp/sub")));
  DIR* const directory = opendir("files.tmp/sub/");
  for (int32 round = 0; round < 2; ++round, rewinddir(directory)) {
    uint64 count = 0, named = 0;
    while (const dirent* entry = readdir(directory)) {
      CHECK(entry->d_ino == ++count && entry->d_seekoff == count && entry->d_reclen == 1048);
      CHECK(entry->d_namlen == strlen(entry->d_name) && entry->d_type == (entry->d_name[0] == '.' ? 4 : 8));
      named += same(entry->d_name, "ü");
    }
    CHECK(count == 3 && named == 1 && *__error() == 0);
  }
  CHECK(readdir(directory) != nullptr && closedir(directory) == 0);  // abandoned
  CHECK(closedir(opendir("")) == 0 && fails(EBADF, closedir(nullptr)));
  CHECK(unlink("files.tmp/sub/ü") == 0 && rmdir("files.tmp/sub") == 0);
}

GUEST_TEST(links_and_copies) {
  CHECK(link("files.tmp/a", "files.tmp/b") == 0 && make_file("files.tmp/a", "shared"));
  CHECK(fails(EEXIST, link("files.tmp/a", "files.tmp/b")) && unlink("files.tmp/a") == 0);
  CHECK(fails(EPERM, symlink("files.tmp/b", "files.tmp/a")));
  const int32 from = open("files.tmp/b", 0), to = open("files.tmp/c", O_RDWR | O_CREAT);
  CHECK(lseek(from, 3, 0) == 3 && write(to, "<", 1) == 1 && fcopyfile(from, to, nullptr, 0) == 0 && close(from) == 0);
  CHECK(holds("files.tmp/c", "<shared") && close(to) == 0 && unlink("files.tmp/b") == 0 && unlink("files.tmp/c") == 0);
}

GUEST_TEST(streams_are_binary_and_seek_in_64_bits) {
  FILE* stream = fopen("files.tmp/a", "wt");
  CHECK(fwrite("a\nb\r\n\x1Az", 1, 7, stream) == 7 && ftell(stream) == 7 && fclose(stream) == 0);
  stream = fopen("files.tmp/a", "r+");
  CHECK(fread(buffer, 1, 16, stream) == 7 && fseek(stream, -1, 2) == 0 && fread(buffer, 1, 1, stream) == 1);
  CHECK(buffer[0] == 'z' && fseeko(stream, int64{1} << 33, 0) == 0 && ftello(stream) == int64{1} << 33);
  CHECK(fails(EINVAL, fseek(stream, 0, 7)) && fails(EEXIST, fopen("files.tmp/a", "wx")));
  rewind(stream);
  CHECK(ftell(stream) == 0 && fwrite("A", 1, 1, stream) == 1 && fflush(stream) == 0 &&
        holds("files.tmp/a", "A\nb\r\n\x1Az"));
  CHECK(fread(buffer, uint64{1} << 63, 2, stream) == 0 && fclose(stream) == 0);
}

GUEST_TEST(mapped_files) {
  CHECK(make_file("files.tmp/m", "0123456789"));
  const int32 file = open("files.tmp/m", O_RDWR), ways[] = {MAP_PRIVATE, MAP_SHARED};
  for (const int32 way : ways) {
    uint8* const view = map(nullptr, 4096, PROT_READ | PROT_WRITE, way, file);
    CHECK(memcmp(view, "0123456789\0", 11) == 0);
    view[0] = 's';
    CHECK(munmap(view, 4096) == 0 && holds("files.tmp/m", way == MAP_SHARED ? "s123456789" : "0123456789"));
  }
  CHECK(fails(EINVAL, map(nullptr, 0, PROT_READ, MAP_SHARED, file)));
  CHECK(fails(ENOMEM, map(nullptr, 1, PROT_READ, MAP_SHARED, file, 4096)));
  CHECK(close(file) == 0 && unlink("files.tmp/m") == 0);
}

GUEST_TEST(anonymous_memory_is_remade_given_up_and_protected_in_parts) {
  constexpr uint64 size = 65536, page = 4096;
  constexpr int32 both = PROT_READ | PROT_WRITE, anonymous = MAP_PRIVATE | MAP_ANON, fixed = anonymous | MAP_FIXED;
  uint8* region = map(nullptr, size, both, anonymous, -1);
  for (uint64 k = 0; k < size; k += page) region[k] = 1;
  CHECK(map(region + page, page, both, fixed, -1) == region + page);
  CHECK(region[0] == 1 && region[page] == 0 && munmap(region + size / 2, size / 2) == 0 && region[page * 7] == 1);
  CHECK(mprotect(region + size / 2, page, both) == 0 && region[size / 2] == 0);
  CHECK(mprotect(region, page, PROT_READ) == 0 && region[0] == 1 && fails(EINVAL, mprotect(region, ~uint64{0}, both)));
  CHECK(munmap(region, size) == 0 && map(region, size, both, fixed, -1) == region && munmap(region, size) == 0);
  CHECK(fails(EINVAL, map(region + 1, 1, both, fixed, -1)) &&
        fails(ENOMEM, map(nullptr, 1UL << 60, both, anonymous, -1)));
}

GUEST_TEST(nothing_stays_open) {
  CHECK(unlink("files.tmp/a") == 0 && unlink("files.tmp/s") == 0);
  CHECK(rmdir("files.tmp") == 0 && fails(ENOENT, rmdir("files.tmp")));
  const int64 more = open_handles() - handles_at_start;
  guest_test::check(more == 0, running_test, more, "handles more than at the start");
}

// A probe for the driver.
extern "C" int64 exit_with_an_open_stream() {
  fwrite("flushed", 1, 7, fopen("exit.tmp", "w"));
  exit(5);
}
