// Files, directories and clocks of game code against the Windows call that each comes down to, on the same file.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/shim_catalogue.h"
#include "posix/descriptors.h"
#include "posix/time.h"
#include "report.h"
#include "shim.h"

using namespace vlm::bench;

namespace {

constexpr int block_size = 4096;
constexpr int blocks = 256;  // of the file; the system has it in memory
constexpr int entries = 10'000;
constexpr char file_name[] = "files_bench.tmp/file";
constexpr wchar_t host_file_name[] = L"files_bench.tmp\\file";

/// `peer` and `ours` are loops of `count` calls; false from one of them ends the benchmark.
template <class Peer, class Ours>
void row(const char* name, int count, Peer peer, Ours ours, int rounds = 101) {
  const auto checked = [name](auto loop) {
    return [=] {
      if (loop()) return;
      std::printf("%s: a call failed, error %lu\n", name, GetLastError());
      std::exit(1);
    };
  };
  const auto time = compare(rounds, 1, checked(peer), checked(ours));
  print_row(name, "ns", time.peer / count, time.ours / count, "1.15");
}

template <class Call>
bool repeat(int count, Call call) {
  bool good = true;
  for (int i = 0; i < count; ++i) good &= call();
  return good;
}

void bench_descriptors() {
  const Shim<std::int32_t(const char*, std::int32_t, std::int32_t)> open_("_open");
  const Shim<std::int64_t(std::int32_t, void*, std::uint64_t)> read_("_read");
  const Shim<std::int64_t(std::int32_t, const void*, std::uint64_t)> write_("_write");
  const Shim<std::int64_t(std::int32_t, std::int64_t, std::int32_t)> lseek_("_lseek");
  const Shim<std::int32_t(std::int32_t)> close_("_close");
  constexpr std::int32_t read_write = 2, create = 0x200;
  static char block[block_size];

  // One open file for both sides.
  const std::int32_t number = open_(file_name, read_write | create, 0644);
  const HANDLE handle = vlm::find_descriptor(number).handle;
  const auto from_start = [&](auto loop) { return [&, loop] { return lseek_(number, 0, 0) == 0 && loop(); }; };
  DWORD done;
  row("_write, 4 KiB; peer: WriteFile", blocks,
      from_start([&] { return repeat(blocks, [&] { return WriteFile(handle, block, block_size, &done, nullptr); }); }),
      from_start([&] { return repeat(blocks, [&] { return write_(number, block, block_size) == block_size; }); }));
  row("_read, 4 KiB; peer: ReadFile", blocks,
      from_start([&] { return repeat(blocks, [&] { return ReadFile(handle, block, block_size, &done, nullptr); }); }),
      from_start([&] { return repeat(blocks, [&] { return read_(number, block, block_size) == block_size; }); }));
  close_(number);
}

void bench_streams() {
  const Shim<std::FILE*(const char*, const char*)> fopen_("_fopen");
  const Shim<std::uint64_t(void*, std::uint64_t, std::uint64_t, std::FILE*)> fread_("_fread");
  const Shim<std::int32_t(std::FILE*, std::int64_t, std::int32_t)> fseek_("_fseek");
  const Shim<std::int32_t(std::FILE*)> fclose_("_fclose");
  static auto* const volatile host_fread = &std::fread;
  static char part[64];
  constexpr int parts = blocks * block_size / sizeof part;
  std::FILE* const stream = fopen_(file_name, "r");
  const auto from_start = [&](auto loop) { return [&, loop] { return fseek_(stream, 0, 0) == 0 && loop(); }; };
  row("_fread, 64 bytes; peer: fread of the C runtime", parts,
      from_start([&] { return repeat(parts, [&] { return host_fread(part, 1, 64, stream) == 64; }); }),
      from_start([&] { return repeat(parts, [&] { return fread_(part, 1, 64, stream) == 64; }); }));
  fclose_(stream);
}

void bench_status() {
  const Shim<std::int32_t(const char*, void*)> stat_("_stat$INODE64");
  static std::uint64_t status[18];
  WIN32_FILE_ATTRIBUTE_DATA host;
  constexpr int count = 100;
  row(
      "_stat$INODE64; peer: GetFileAttributesExW", count,
      [&] { return repeat(count, [&] { return GetFileAttributesExW(host_file_name, GetFileExInfoStandard, &host); }); },
      [&] { return repeat(count, [&] { return stat_(file_name, status) == 0; }); });
}

void bench_directories() {
  const Shim<void*(const char*)> opendir_("_opendir$INODE64");
  const Shim<void*(void*)> readdir_("_readdir$INODE64");
  const Shim<std::int32_t(void*)> closedir_("_closedir");
  const std::string folder = "files_bench.tmp/entries";
  CreateDirectoryA(folder.c_str(), nullptr);
  const auto entry_name = [&](int i) { return folder + "/save-" + std::to_string(i) + ".dat"; };
  for (int i = 0; i < entries; ++i) {
    CloseHandle(CreateFileA(entry_name(i).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  }
  constexpr int all = entries + 2;  // with the directory and the one above it
  row(
      "_readdir$INODE64, 10000 entries; peer: FindNextFileW", all,
      [] {
        WIN32_FIND_DATAW found;
        const HANDLE search = FindFirstFileW(L"files_bench.tmp\\entries\\*", &found);
        int count = 1;
        while (FindNextFileW(search, &found)) ++count;
        return FindClose(search) && count == all;
      },
      [&] {
        void* const directory = opendir_(folder.c_str());
        int count = 0;
        while (readdir_(directory) != nullptr) ++count;
        return closedir_(directory) == 0 && count == all;
      },
      25);
  for (int i = 0; i < entries; ++i) DeleteFileA(entry_name(i).c_str());
  RemoveDirectoryA(folder.c_str());
}

void bench_clocks() {
  const Shim<std::uint64_t()> mach_absolute_time_("_mach_absolute_time");
  const Shim<std::uint64_t(std::uint32_t)> clock_gettime_nsec_np_("_clock_gettime_nsec_np");
  constexpr int count = 10'000;
  const auto counter_loop = [] {
    LARGE_INTEGER counter;
    return repeat(count, [&] { return QueryPerformanceCounter(&counter); });
  };
  row("_mach_absolute_time; peer: QueryPerformanceCounter", count, counter_loop,
      [&] { return repeat(count, [&] { return mach_absolute_time_() != 0; }); });
  row("_clock_gettime_nsec_np, monotonic; peer: the same", count, counter_loop,
      [&] { return repeat(count, [&] { return clock_gettime_nsec_np_(6) != 0; }); });
  row(
      "the same, real time; peer: GetSystemTimePreciseAsFileTime", count,
      [] {
        FILETIME time;
        return repeat(count, [&] { return GetSystemTimePreciseAsFileTime(&time), time.dwHighDateTime != 0; });
      },
      [&] { return repeat(count, [&] { return clock_gettime_nsec_np_(0) != 0; }); });
}

}  // namespace

int main() {
  vlm::set_up_time_base();
  vlm::register_shim_families();
  CreateDirectoryA("files_bench.tmp", nullptr);
  bench_descriptors();
  bench_streams();
  bench_status();
  bench_directories();
  bench_clocks();
  DeleteFileW(host_file_name);
  RemoveDirectoryA("files_bench.tmp");
}
