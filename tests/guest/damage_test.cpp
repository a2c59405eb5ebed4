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
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

#include "support/damage.h"
#include "support/game_process.h"
#include "support/host_program.h"

using namespace vlm;
using namespace vlm::test;

namespace {

constexpr DWORD time_limit_ms = 30'000;
constexpr std::size_t slot_count = 3;

enum Kind { image_kind, list_kind, unwind_kind };
constexpr const char* kind_names[] = {"images", "patch lists", "unwind tables"};
struct Tally {
  int starts, refusals, faults;
} tallies[std::size(kind_names)];

Kind kind_of(std::uint64_t seed) { return seed % 8 == 0 ? unwind_kind : seed % 8 < 3 ? list_kind : image_kind; }

std::string text_of(const Bytes& bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

/// A folder with the library, for one process at a time.
struct Slot {
  std::wstring folder;
  std::uint64_t seed = 0;
  UniqueHandle process;
  ULONGLONG deadline = 0;
  bool again = false;  // the second process with this seed
};

struct Input {
  std::string library, image_to_patch, throwing_image;
};

void require_written(const std::wstring& path, const std::string& bytes) {
  if (write_file(path, bytes)) return;
  std::printf("cannot write %ls\n", path.c_str());
  std::exit(1);
}

void start(Slot& slot, const Input& input, std::uint64_t seed, bool again = false) {
  const Kind kind = kind_of(seed);
  // A list is applied to images of that name only; the others are damaged in other places.
  const std::wstring image = slot.folder + (kind == list_kind ? L"GameAssembly.dylib" : L"image.dylib");
  const wchar_t* wish = L"";
  if (kind == image_kind) {
    require_written(image, text_of(damaged_image(seed)));
  } else if (kind == list_kind) {
    require_written(slot.folder + L"GameAssembly.dll", input.library + text_of(damaged_patch_list(seed)));
    if (seed % 2 == 1) wish = L"expansion";
  } else {
    const auto bytes = std::as_bytes(std::span(input.throwing_image));
    Bytes damaged(bytes.begin(), bytes.end());
    damage_unwind_information(damaged, seed);
    require_written(image, text_of(damaged));
    wish = L"uncaught_class";
  }
  DeleteFileW((slot.folder + L"PCSaveData\\loader.log").c_str());
  slot.seed = seed;
  slot.again = again;
  slot.process = start_process(L"\"" + program_path() + L"\" --in \"" + slot.folder + L".\" damage_start \"" + image +
                               L"\" " + wish);
  slot.deadline = GetTickCount64() + time_limit_ms;
}

/// Counts how the process of the slot ended, if it has.
/// Wine loses one in thousands of processes while it ends them: the last thread waits for a lock of Wine's that a
/// thread held which is gone. So one that does not end gets a second chance; the library would hang with this seed
/// again.
bool has_ended(Slot& slot, const Input& input, const char* program) {
  const bool ended = WaitForSingleObject(slot.process.get(), 0) == WAIT_OBJECT_0;
  if (!ended && GetTickCount64() < slot.deadline) return false;
  DWORD code = 0;
  if (!ended) {
    TerminateProcess(slot.process.get(), 99);
    WaitForSingleObject(slot.process.get(), 5000);
    if (!slot.again) {
      std::printf("seed %llu does not end; once more\n", slot.seed);
      start(slot, input, slot.seed, true);
      return false;
    }
  }
  GetExitCodeProcess(slot.process.get(), &code);
  slot.process.reset();
  const std::string log = read_file(slot.folder + L"PCSaveData\\loader.log");
  Tally& tally = tallies[kind_of(slot.seed)];
  if (ended && code == 0) {
    ++tally.starts;
  } else if (ended && code == 3 && log.find("FATAL: ") != std::string::npos) {
    ++tally.refusals;
  } else {
    ++tally.faults;
    std::printf("seed %llu (of the %s): %s 0x%lx; the log ends so:\n%s\n  again: %s LIBRARY IMAGE %llu 1\n", slot.seed,
                kind_names[kind_of(slot.seed)], ended ? "exit code" : "does not end, stopped with", code,
                log.substr(log.size() - std::min<std::size_t>(log.size(), 3000)).c_str(), program, slot.seed);
    std::fflush(stdout);
  }
  return true;
}

}  // namespace

HOST_PROGRAM(damage) {
  if (argc != 5) return std::puts("usage: damage LIBRARY IMAGE FIRST COUNT"), 1;
  const auto wide = [](const char* path) {
    return (std::filesystem::path(program_folder()) / path).make_preferred().wstring();
  };
  const Input input{read_file(wide(argv[1])), text_of(image_to_patch()), read_file(wide(argv[2]))};
  if (input.library.empty() || input.throwing_image.empty()) return std::puts("cannot read LIBRARY or IMAGE"), 1;
  std::uint64_t next = std::strtoull(argv[3], nullptr, 10);
  const std::uint64_t end = next + std::strtoull(argv[4], nullptr, 10);

  const std::wstring folder = wide(argv[1]).substr(0, wide(argv[1]).find_last_of(L"\\/") + 1) + L"damage.tmp\\";
  CreateDirectoryW(folder.c_str(), nullptr);
  std::array<Slot, slot_count> slots;
  for (std::size_t i = 0; i < slot_count; ++i) {
    slots[i].folder = folder + std::to_wstring(i) + L"\\";
    CreateDirectoryW(slots[i].folder.c_str(), nullptr);
    require_written(slots[i].folder + L"GameAssembly.dll", input.library);
    require_written(slots[i].folder + L"GameAssembly.dylib", input.image_to_patch);
  }
  const bool look_at_it = end - next == 1;
  for (bool busy = true; busy; Sleep(1)) {
    busy = false;
    for (Slot& slot : slots) {
      if (slot.process && !has_ended(slot, input, argv[0])) {
        busy = true;
      } else if (next < end) {
        start(slot, input, next++);
        busy = true;
      }
    }
  }
  if (!look_at_it) std::filesystem::remove_all(folder);
  int faults = 0;
  for (std::size_t kind = 0; kind < std::size(tallies); ++kind) {
    const Tally& tally = tallies[kind];
    std::printf("%s: %d started, %d refused, %d faults\n", kind_names[kind], tally.starts, tally.refusals,
                tally.faults);
    faults += tally.faults;
  }
  return faults == 0 && (look_at_it || tallies[image_kind].starts > 0) ? 0 : 1;
}
