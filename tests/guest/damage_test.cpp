// Starts the library with thousands of damaged images, patch lists and unwind tables, several at a time in folders of
// their own. It has to start, or to end the game with a message.
//
//   damage LIBRARY IMAGE FIRST COUNT
//
//   LIBRARY       the GameAssembly.dll to test
//   IMAGE         a game image with a function uncaught_class, which throws
//   FIRST, COUNT  seeds; with COUNT 1 the damaged files stay where they are, to be looked at
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/damage.h"
#include "support/game_process.h"
#include "support/host_program.h"

using namespace vlm;
using namespace vlm::test;

namespace {

constexpr DWORD time_limit_ms = 30'000;
constexpr std::size_t worker_count = 3;

enum Kind { image_kind, list_kind, unwind_kind };

std::string library, image, throwing_image;
std::wstring folder;
std::atomic<std::uint64_t> next_seed;
std::uint64_t end_seed;
std::atomic<int> starts, refusals, faults;

Kind kind_of(std::uint64_t seed) { return seed % 8 == 0 ? unwind_kind : seed % 8 < 3 ? list_kind : image_kind; }

std::string text_of(const Bytes& bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

void require_written(const std::wstring& path, const std::string& bytes) {
  if (!write_file(path, bytes)) std::printf("cannot write %ls\n", path.c_str()), std::exit(1);
}

/// Writes the damaged file into a worker's folder; what the process that reads it is asked.
std::wstring prepare(const std::wstring& home, std::uint64_t seed) {
  if (kind_of(seed) == list_kind) {  // a list is applied to images of that name only
    require_written(home + L"GameAssembly.dll", library + text_of(damaged_patch_list(seed)));
    return home + L"GameAssembly.dylib\"";
  }
  const auto whole = std::as_bytes(std::span(throwing_image));
  Bytes damaged(whole.begin(), whole.end());
  kind_of(seed) == image_kind ? void(damaged = damaged_image(seed)) : damage_unwind_information(damaged, seed);
  require_written(home + L"image.dylib", text_of(damaged));
  return home + L"image.dylib\"" + (kind_of(seed) == unwind_kind ? L" uncaught_class" : L"");
}

/// The exit code; STILL_ACTIVE when the process had to be stopped.
DWORD run(const std::wstring& arguments) {
  const UniqueHandle process = start_process(L"\"" + program_path() + L"\" " + arguments);
  DWORD code = STILL_ACTIVE;
  if (WaitForSingleObject(process.get(), time_limit_ms) == WAIT_OBJECT_0) GetExitCodeProcess(process.get(), &code);
  if (code == STILL_ACTIVE) TerminateProcess(process.get(), 99);
  return code;
}

DWORD WINAPI work(void* number) {
  const std::wstring home = folder + std::to_wstring(reinterpret_cast<std::uintptr_t>(number)) + L"\\";
  CreateDirectoryW(home.c_str(), nullptr);
  require_written(home + L"GameAssembly.dll", library);
  require_written(home + L"GameAssembly.dylib", image);
  for (std::uint64_t seed; (seed = next_seed++) < end_seed;) {
    const std::wstring arguments = L"--in \"" + home + L".\" damage_start \"" + prepare(home, seed);
    DeleteFileW((home + L"PCSaveData\\loader.log").c_str());
    DWORD code = run(arguments);
    // Wine loses one in thousands of processes while it ends them: the last thread waits for a lock of Wine's that a
    // thread held which is gone. The library would hang with this seed again.
    if (code == STILL_ACTIVE) code = run(arguments);
    const std::string log = read_file(home + L"PCSaveData\\loader.log");
    if (code == 0 || (code == 3 && log.contains("FATAL: "))) {
      ++(code == 0 ? starts : refusals);
      continue;
    }
    ++faults;
    std::printf("seed %llu: exit code 0x%lx; again: damage LIBRARY IMAGE %llu 1; the log ends so:\n%s\n", seed, code,
                seed, log.substr(log.size() - std::min<std::size_t>(log.size(), 3000)).c_str());
    std::fflush(stdout);
  }
  return 0;
}

}  // namespace

HOST_PROGRAM(damage) {
  if (argc != 5) return std::puts("usage: damage LIBRARY IMAGE FIRST COUNT"), 1;
  const auto path = [&](int i) { return (std::filesystem::path(program_folder()) / argv[i]).make_preferred(); };
  library = read_file(path(1)), image = text_of(image_to_patch()), throwing_image = read_file(path(2));
  if (library.empty() || throwing_image.empty()) return std::puts("cannot read LIBRARY or IMAGE"), 1;
  next_seed = std::strtoull(argv[3], nullptr, 10);
  end_seed = next_seed + std::strtoull(argv[4], nullptr, 10);
  const bool look_at_it = end_seed - next_seed == 1;

  folder = path(1).parent_path().wstring() + L"\\damage.tmp\\";
  CreateDirectoryW(folder.c_str(), nullptr);
  HANDLE workers[worker_count];
  for (std::size_t i = 0; i < worker_count; ++i) {
    workers[i] = CreateThread(nullptr, 0, work, reinterpret_cast<void*>(i), 0, nullptr);
  }
  WaitForMultipleObjects(worker_count, workers, TRUE, INFINITE);
  if (!look_at_it) std::filesystem::remove_all(folder);
  std::printf("%d started, %d refused\n", starts.load(), refusals.load());
  return faults == 0 && (look_at_it || starts > 0) ? 0 : 1;
}
