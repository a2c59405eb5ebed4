// A process of the game is killed at random moments while store_guest.cpp writes, and started again: all that it told
// to be kept has to be there.
#define DOCTEST_CONFIG_NO_MULTITHREADING
#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#include <doctest/doctest.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <random>
#include <string>

#include "support/game_process.h"
#include "support/handles.h"

using namespace vlm;
using namespace vlm::test;

namespace {

constexpr DWORD time_limit_ms = 30'000;

/// The store in a process of its own, whose lines come through a pipe.
class StoreProcess {
 public:
  explicit StoreProcess(const wchar_t* probe) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE read_end = nullptr, write_end = nullptr;
    REQUIRE(CreatePipe(&read_end, &write_end, &inherited, 0));
    read_end_.reset(read_end);
    const UniqueHandle given(write_end);
    SetHandleInformation(read_end, HANDLE_FLAG_INHERIT, 0);
    const std::wstring folder = program_folder();
    process_ = start_process(
        L"\"" + folder + L"guest_driver.exe\" \"" + folder + L"guests\\store_guest.dylib\" " + probe, write_end);
    REQUIRE(process_);
  }

  /// Takes in what the process tells until it told `text`, or until `ms` have passed or it ended: then false.
  bool listen(DWORD ms, const char* text = nullptr) {
    for (const ULONGLONG end = GetTickCount64() + ms; GetTickCount64() < end;) {
      if (!take_in()) return false;
      if (text != nullptr && told_.find(text) != std::string::npos) return true;
      Sleep(1);
    }
    return false;
  }

  /// Its exit code, after the last that it told.
  DWORD end(bool by_force) {
    if (by_force) TerminateProcess(process_.get(), 99);
    WaitForSingleObject(process_.get(), time_limit_ms);
    while (take_in()) {
    }
    DWORD code = 0;
    GetExitCodeProcess(process_.get(), &code);
    return code;
  }

  const std::string& told() const { return told_; }

  /// The numbers behind the last whole line of this kind.
  struct Line {
    std::uint64_t last = 0;
    int torn = 0, unfinished = 0;
  };
  std::optional<Line> last_line(const std::string& kind) const {
    const std::size_t end = told_.rfind('\n') + 1;
    const std::size_t at = told_.substr(0, end).rfind(kind + " ");
    Line line;
    if (at == std::string::npos) return std::nullopt;
    std::sscanf(told_.c_str() + at + kind.size(), "%llu %d %d", &line.last, &line.torn, &line.unfinished);
    return line;
  }

 private:
  /// False when there is nothing more to come.
  bool take_in() {
    DWORD size = 0;
    if (!PeekNamedPipe(read_end_.get(), nullptr, 0, nullptr, &size, nullptr)) return false;
    if (size == 0) return WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT;
    char bytes[4096];
    if (!ReadFile(read_end_.get(), bytes, sizeof bytes, &size, nullptr)) return false;
    told_.append(bytes, size);
    return true;
  }

  UniqueHandle read_end_;
  UniqueHandle process_;
  std::string told_;
};

}  // namespace

TEST_CASE("a store that is killed at any moment has kept all that it told") {
  constexpr wchar_t log_name[] = L"store.tmp\\log", new_name[] = L"store.tmp\\new";
  DeleteFileW(log_name);
  DeleteFileW(new_name);

  std::mt19937 random(22);
  std::uint64_t kept = 0;
  int torn = 0, unfinished = 0;
  const auto check_opened = [&](const StoreProcess& store) {
    CHECK_EQ(store.told().find("broken"), std::string::npos);
    const auto opened = store.last_line("opened");
    if (!opened) return;  // killed before
    CHECK_GE(opened->last, kept);
    kept = opened->last;
    torn += opened->torn;
    unfinished += opened->unfinished;
  };
  for (int round = 0; round < 60; ++round) {
    CAPTURE(round);
    StoreProcess store(L"write_until_killed");
    REQUIRE(store.listen(time_limit_ms, "started\n"));
    store.listen(random() % 100);
    CHECK_EQ(store.end(true), 99);
    CAPTURE(store.told());
    check_opened(store);
    if (const auto line = store.last_line("kept")) kept = line->last;
  }
  StoreProcess store(L"open_and_check");
  store.listen(time_limit_ms);
  CHECK_EQ(store.end(false), 0);
  check_opened(store);
  REQUIRE(store.last_line("opened"));

  // The kills hit what they were aimed at.
  MESSAGE(kept << " records, " << torn << " torn, " << unfinished << " files not finished");
  CHECK_GT(torn, 0);
  CHECK_GT(unfinished, 0);
  DeleteFileW(log_name);
  CHECK(RemoveDirectoryW(L"store.tmp"));
}
