// The file of the cloud store, as processes of the game find it and leave it: cloud_guest.mm in folders of its own,
// with disks that fail, and killed while it saves.
#define DOCTEST_CONFIG_NO_MULTITHREADING
#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#include <doctest/doctest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "told_process.h"

using namespace vlm;
using namespace vlm::test;

namespace {

const std::wstring save_folder = program_folder() + L"cloud.tmp";
const std::wstring store_path = save_folder + L"\\icloud_kvs.txt";
const std::wstring temporary_path = store_path + L".tmp";

/// An empty folder for the game, with a store of these bytes when there are some.
void begin_with(const std::string& store) {
  CreateDirectoryW(save_folder.c_str(), nullptr);
  RemoveDirectoryW(temporary_path.c_str());
  DeleteFileW(temporary_path.c_str());
  DeleteFileW(store_path.c_str());
  if (!store.empty()) REQUIRE(write_file(store_path, store));
}

Ending run_guest(const wchar_t* probe, const std::wstring& folder = save_folder) {
  const std::wstring image = program_folder() + L"guests\\cloud_guest.dylib";
  return run_game_process(program_folder(), L"guest_driver.exe", L"\"" + image + L"\" " + probe,
                          {{L"VLM_SAVE_DIR", folder}});
}

/// The log's lines about the store, without their time and thread, the folder left out.
std::string messages_of(const Ending& ending, std::wstring folder = save_folder) {
  std::ranges::replace(folder, L'\\', L'/');
  const std::string prefix = std::string(folder.begin(), folder.end()) + "/";
  std::string messages;
  for (std::size_t at = 0; (at = ending.log.find("[kvs] ", at)) != std::string::npos; ++at) {
    std::string line = ending.log.substr(at, ending.log.find("\r\n", at) - at) + "\n";
    if (const std::size_t path = line.find(prefix); path != std::string::npos) line.erase(path, prefix.size());
    messages += line;
  }
  return messages;
}

std::string repeat(int times, const std::string& text) {
  std::string all;
  while (times-- > 0) all += text;
  return all;
}

const std::string after_ten_changes = "s\tlarge\t" + std::string((1 << 20) - 1, 'x') + "\ni\tchange\t9\n";

}  // namespace

TEST_CASE("the store and its plug-in functions do what game code expects") {
  begin_with("i\tgames\t41\r\ns\tname\ta\\tb\r\nd\tratio\t0.1\r\n");
  const Ending ending = run_guest(L"");
  CHECK_EQ(ending.exit_code, 0);  // the driver has printed the checks that failed
  CHECK_EQ(messages_of(ending), "");
  CHECK_EQ(GetFileAttributesW(temporary_path.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_CASE("a change that a disk refuses stays in memory, and the log tells of the first ones") {
  begin_with("s\told\tstate\n");
  SUBCASE("a whole disk") {
    const Ending ending = run_guest(L"change_ten_times");
    CHECK_EQ(ending.exit_code, 0);
    CHECK_EQ(messages_of(ending), "");
    CHECK(read_file(store_path) == "s\told\tstate\n" + after_ten_changes);
  }
  SUBCASE("the temporary name is taken") {
    REQUIRE(CreateDirectoryW(temporary_path.c_str(), nullptr));
    const Ending ending = run_guest(L"change_ten_times");
    CHECK_EQ(ending.exit_code, 0);
    CHECK_EQ(messages_of(ending),
             repeat(3, "[kvs] cannot create icloud_kvs.txt.tmp (errno 13, win32 5); writing in place\n"));
    CHECK(read_file(store_path) == "s\told\tstate\n" + after_ten_changes);
  }
  SUBCASE("there is no folder") {
    const std::wstring nowhere = save_folder + L"\\none\\none";
    const Ending ending = run_guest(L"change_ten_times", nowhere);
    CHECK_EQ(ending.exit_code, 0);
    const std::string create = "[kvs] cannot create icloud_kvs.txt.tmp (errno 2, win32 3); writing in place\n";
    const std::string write = "[kvs] cannot write icloud_kvs.txt (errno 2, win32 3): cloud save NOT stored\n";
    CHECK_EQ(messages_of(ending, nowhere), create + write + create + write + write);
  }
  SUBCASE("the disk is full") {
    // A pipe in the place of the temporary file, whose other end closes when some of the bytes are written.
    const std::wstring pipes = LR"(\\.\pipe\vlm_cloud_test)";
    const std::wstring pipe_path = pipes + L"\\icloud_kvs.txt.tmp";
    const auto pipe =
        own_handle(CreateNamedPipeW(pipe_path.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE, 1, 0, 4096, 0, nullptr));
    REQUIRE(pipe);
    const auto take_some = [](void* end) -> DWORD {
      char bytes[16];
      DWORD size;
      ConnectNamedPipe(end, nullptr);
      ReadFile(end, bytes, sizeof bytes, &size, nullptr);
      DisconnectNamedPipe(end);
      return 0;
    };
    const UniqueHandle thread(CreateThread(nullptr, 0, take_some, pipe.get(), 0, nullptr));
    const Ending ending = run_guest(L"change_once", pipes);
    CHECK_EQ(ending.exit_code, 0);
    CHECK_EQ(messages_of(ending, pipes), "[kvs] write error while saving icloud_kvs.txt\n");
    own_handle(CreateFileW(pipe_path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));  // if nobody came
    CHECK_EQ(WaitForSingleObject(thread.get(), 5000), WAIT_OBJECT_0);
  }
  SUBCASE("another program holds the store") {
    auto held = own_handle(CreateFileW(store_path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    REQUIRE(held);
    const Ending ending = run_guest(L"change_ten_times");
    CHECK_EQ(ending.exit_code, 0);
    CHECK_EQ(messages_of(ending), repeat(3,
                                         "[kvs] cannot replace icloud_kvs.txt (win32 5); copying instead\n"
                                         "[kvs] copy failed too (win32 32): cloud save NOT stored\n"));
    CHECK_EQ(GetFileAttributesW(temporary_path.c_str()), INVALID_FILE_ATTRIBUTES);
    held.reset();
    CHECK_EQ(read_file(store_path), "s\told\tstate\n");
  }
  SUBCASE("another program lets the store go while the game starts") {
    HANDLE const held = CreateFileW(store_path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    REQUIRE(held != INVALID_HANDLE_VALUE);
    const auto let_go = [](void* file) -> DWORD {
      Sleep(1000);
      CloseHandle(file);
      return 0;
    };
    const UniqueHandle thread(CreateThread(nullptr, 0, let_go, held, 0, nullptr));
    CHECK_EQ(run_guest(L"change_ten_times").exit_code, 0);
    CHECK(read_file(store_path) == "s\told\tstate\n" + after_ten_changes);
  }
}

// ---- Killed while it saves ------------------------------------------------------------------------------------------

namespace {

/// The store after this step of save_until_killed.
std::string state_after(std::int64_t step) {
  std::string state;
  for (std::int64_t key = 0; key < 40 && key <= step; ++key) {
    const std::int64_t last = step - (step - key) % 40;
    char line[64];
    std::snprintf(line, sizeof line, "s\tlevel_%02d\t%lld ", static_cast<int>(key), static_cast<long long>(last));
    state += line + std::string(static_cast<std::size_t>(last % 97 * 10), 'x') + "\n";
  }
  return state;
}

}  // namespace

TEST_CASE("a game that is killed while it saves leaves the old state or the new one") {
  begin_with("");
  SetEnvironmentVariableW(L"VLM_SAVE_DIR", save_folder.c_str());
  std::mt19937 random(84);
  std::int64_t kept = -1;
  int unfinished = 0;
  for (int round = 0; round < 200; ++round) {
    CAPTURE(round);
    const ToldProcess game = run_and_kill(L"cloud_guest", L"save_until_killed", "\n", random() % 12);
    CHECK_EQ(game.exit_code, ToldProcess::killed);
    REQUIRE(!last_line(game.told).empty());
    const std::int64_t last = std::atoll(last_line(game.told).c_str());
    REQUIRE_GE(last, kept);  // went on from what was kept
    const std::string state = read_file(store_path);
    const bool is_old = state == state_after(last), is_new = state == state_after(last + 1);
    REQUIRE((is_old || is_new));
    kept = is_new ? last + 1 : last;
    unfinished += GetFileAttributesW(temporary_path.c_str()) != INVALID_FILE_ATTRIBUTES;
  }
  SetEnvironmentVariableW(L"VLM_SAVE_DIR", nullptr);
  MESSAGE(kept << " saves, " << unfinished << " temporary files left");
  CHECK_GT(unfinished, 0);  // the kills hit what they were aimed at
  for (const std::wstring& path : {store_path, temporary_path}) DeleteFileW(path.c_str());
  CHECK(RemoveDirectoryW(save_folder.c_str()));
}
