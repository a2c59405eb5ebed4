// Starts the library with thousands of damaged images, several at a time in folders of their own. It has to start, or
// to end the game with a message.
//
//   damage LIBRARY FIRST COUNT
//
//   LIBRARY       the GameAssembly.dll to test
//   FIRST, COUNT  seeds; after a fault the last damaged files stay where they are, to be looked at
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "support/damage.h"
#include "support/game.h"
#include "support/game_process.h"
#include "support/host_program.h"

using namespace vlm;
using namespace vlm::test;

namespace {

constexpr DWORD time_limit_ms = 30'000;
constexpr std::size_t worker_count = 3;

std::string sound_library;
std::wstring folder;
std::atomic<std::uint64_t> next_seed;
std::uint64_t end_seed;
std::atomic<int> starts, refusals, faults;

std::string text_of(const Bytes& bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

void require_written(const std::wstring& path, const std::string& bytes) {
  if (!write_file(path, bytes)) std::printf("cannot write %ls\n", path.c_str()), std::exit(1);
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
  require_written(home + L"GameAssembly.dll", sound_library);
  for (std::uint64_t seed; (seed = next_seed++) < end_seed;) {
    require_written(home + L"image.dylib", text_of(damaged_image(seed)));
    const std::wstring arguments = L"--in \"" + home + L".\" damage_start \"" + home + L"image.dylib\"";
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
    std::printf("seed %llu: exit code 0x%lx; again: damage LIBRARY %llu 1; the log ends so:\n%s\n", seed, code, seed,
                log.substr(log.size() - std::min<std::size_t>(log.size(), 3000)).c_str());
    std::fflush(stdout);
  }
  return 0;
}

// ---- A process with one of them
// --------------------------------------------------------------------------------------

constexpr DWORD report_wanted = 0xC0DE0000;

LONG CALLBACK end_unless_report(EXCEPTION_POINTERS* exception) {
  // The report is written: the library's handler comes first.
  const bool is_written = exception->ExceptionRecord->ExceptionCode == report_wanted;
  return is_written ? EXCEPTION_CONTINUE_EXECUTION : end_when_crashed(exception);
}

/// Many games at a time.
HANDLE WINAPI make_mutex_without_name(SECURITY_ATTRIBUTES*, BOOL, const wchar_t*) {
  SetLastError(ERROR_SUCCESS);
  return GetCurrentProcess();
}

/// Nobody is there to read; the log has the text.
int WINAPI show_no_box(HWND, const wchar_t*, const wchar_t*, UINT) { return IDOK; }

/// Puts a jump to `function` in the place of one of Windows'.
void replace(const char* module, const char* name, void* function) {
  auto* const place = reinterpret_cast<std::byte*>(GetProcAddress(GetModuleHandleA(module), name));
  DWORD before;
  VirtualProtect(place, 12, PAGE_EXECUTE_READWRITE, &before);
  std::memcpy(place, "\x48\xB8--------\xFF\xE0", 12);  // movabs rax, function; jmp rax
  std::memcpy(place + 2, &function, sizeof function);
}

}  // namespace

HOST_PROGRAM(damage) {
  if (argc != 4) return std::puts("usage: damage LIBRARY FIRST COUNT"), 1;
  const auto path = (std::filesystem::path(program_folder()) / argv[1]).make_preferred();
  sound_library = read_file(path);
  if (sound_library.empty()) return std::puts("cannot read LIBRARY"), 1;
  next_seed = std::strtoull(argv[2], nullptr, 10);
  end_seed = next_seed + std::strtoull(argv[3], nullptr, 10);

  folder = path.parent_path().wstring() + L"\\damage.tmp\\";
  CreateDirectoryW(folder.c_str(), nullptr);
  HANDLE workers[worker_count];
  for (std::size_t i = 0; i < worker_count; ++i) {
    workers[i] = CreateThread(nullptr, 0, work, reinterpret_cast<void*>(i), 0, nullptr);
  }
  WaitForMultipleObjects(worker_count, workers, TRUE, INFINITE);
  if (faults == 0) std::filesystem::remove_all(folder);
  std::printf("%d started, %d refused\n", starts.load(), refusals.load());
  return faults == 0 && starts > 0 ? 0 : 1;
}

/// damage_start IMAGE: starts the library with an image that may be damaged and asks for all that it says about an
/// image. Exit code 0: the library started and answered, 3: it refused; a crash ends the process with its own code.
HOST_PROGRAM(damage_start) {
  void* const handler = AddVectoredExceptionHandler(0, end_unless_report);
  replace("kernel32.dll", "CreateMutexW", reinterpret_cast<void*>(&make_mutex_without_name));
  replace("user32.dll", "MessageBoxW", reinterpret_cast<void*>(&show_no_box));
  load_library(argv[1]);
  RemoveVectoredExceptionHandler(handler);
  AddVectoredExceptionHandler(0, end_unless_report);                          // now behind the library's, which reports
  library_function<void (*)(void*)>("il2cpp_set_memory_callbacks")(nullptr);  // starts, and runs no game code

  const std::byte* const image = static_cast<const std::byte*>(find_symbol("game_start"));
  for (const char* name : {"_helper_alias", "", "_far", "not there"}) find_symbol(name);
  const std::byte* volatile stack[64];  // a crash report names the functions that a stack has addresses of
  for (std::size_t i = 0; i < std::size(stack); ++i) stack[i] = image + i * 0x101;
  for (int i = 0; i < 2; ++i) RaiseException(report_wanted, 0, 0, nullptr);
  leave(stack[0] == image ? 0 : 1);
}
