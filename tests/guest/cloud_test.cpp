// The file of the cloud store, as processes of the game find it and leave it: cloud_guest.mm in a folder of its own,
// with files that are damaged, disks that fail and programs that hold files, and killed while it saves.
#include <doctest/doctest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <regex>

#include "support/host_program.h"
#include "told_process.h"

using namespace vlm;
using namespace vlm::test;
using std::filesystem::exists;

HOST_SUITE(cloud)

namespace {

const std::wstring save_folder = program_folder() + L"cloud.tmp Größe ボール \xD83C\xDFAE";
const std::wstring store_path = save_folder + L"\\icloud_kvs.txt", bad_path = store_path + L".bad";
const std::wstring temporary_path = store_path + L".tmp", other_temporary_path = store_path + L".tmp2";

/// A folder for the game that is empty but for its store.
void begin_with(const std::string& store) {
  SetFileAttributesW(store_path.c_str(), FILE_ATTRIBUTE_NORMAL);
  std::filesystem::remove_all(save_folder);
  CreateDirectoryW(save_folder.c_str(), nullptr);
  REQUIRE(write_file(store_path, store));
}

UniqueHandle hold(const std::wstring& path) {
  return own_handle(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

/// The log's lines about the store, without their time and thread, the folder left out.
std::string run_guest(const std::wstring& probe, const std::wstring& folder = save_folder) {
  static const std::regex line_of_store(R"(\[kvs\] [^\r\n]*)"), any_folder(R"((\b[A-Z]:|//\.)/[^:]*?(icloud_kvs))");
  const Ending ending = run_host(L"guests\\cloud_guest.dylib " + probe, {{L"VLM_SAVE_DIR", folder}});
  CHECK_EQ(ending.exit_code, 0);  // the driver has printed the checks that failed
  std::string messages;
  for (std::sregex_iterator line(ending.log.begin(), ending.log.end(), line_of_store), end; line != end; ++line) {
    messages += std::regex_replace(line->str(), any_folder, "$2") + "\n";
  }
  return messages;
}

std::string three_times(const std::string& text) { return text + text + text; }

/// Runs on a thread of its own while this lives.
template <class Work>
struct OnThread {
  static DWORD WINAPI run(void* self) { return static_cast<OnThread*>(self)->work(), 0; }
  Work work;
  UniqueHandle thread = own_handle(CreateThread(nullptr, 0, run, this, 0, nullptr));
  ~OnThread() { CHECK_EQ(WaitForSingleObject(thread.get(), 30'000), WAIT_OBJECT_0); }
};

const std::string old_state = "s\told\tstate\n", changed = "i\tchange\t9\n";

/// Ten changes: what the log tells of them, and the entries of the store then, which is whole.
void check_changes(const std::string& messages, const std::string& entries) {
  CHECK_EQ(run_guest(L"change_ten_times"), messages);
  const std::string bytes = read_file(store_path);
  CHECK_EQ(bytes.substr(0, bytes.rfind("#whole ")), entries);
  CHECK(bytes.ends_with('\n'));
}

const std::string kept_as_bad =
    "[kvs] kept icloud_kvs.txt as icloud_kvs.txt.bad: it is damaged or could not be read (win32 0)\n";

}  // namespace

TEST_CASE("the store and its plug-in functions do what game code expects") {
  begin_with("i\tgames\t41\r\ns\tname\ta\\tb\r\nd\tratio\t0.1\r\n");
  CHECK_EQ(run_guest(L""), "");
  CHECK_FALSE(exists(temporary_path));
}

TEST_CASE("what is not understood is kept beside the store") {
  const std::string cut = old_state + "s\tcu", zeros(4096, '\0'), none;
  for (const std::string* store : {&zeros, &none, &cut}) {
    begin_with(*store);
    check_changes(kept_as_bad, (store == &cut ? old_state : "") + changed);
    CHECK_EQ(read_file(bad_path), *store);
  }
  REQUIRE(write_file(store_path, zeros));
  check_changes(std::regex_replace(kept_as_bad, std::regex("bad:"), "bad2:"), changed);
  CHECK_EQ(read_file(bad_path), cut);
}

TEST_CASE("a change that a disk refuses stays in memory, and the log tells of the first ones") {
  begin_with(old_state + "#whole 3 0123456789abcdef\n");  // as an editor leaves it
  SetFileAttributesW(store_path.c_str(), FILE_ATTRIBUTE_READONLY);
  check_changes("", old_state + changed);  // not even that
  CHECK_FALSE(exists(bad_path));

  const std::string create = "[kvs] cannot create icloud_kvs.txt.tmp (errno ", in_place = "); writing in place\n";
  REQUIRE(CreateDirectoryW(temporary_path.c_str(), nullptr));  // its name is taken
  check_changes(three_times(create + "13, win32 5" + in_place), old_state + changed);

  const std::string no_folder = create + "2, win32 3" + in_place;
  const std::string write = "[kvs] cannot write icloud_kvs.txt (errno 2, win32 3): cloud save NOT stored\n";
  CHECK_EQ(run_guest(L"change_ten_times", save_folder + L"\\none\\none"),
           no_folder + write + no_folder + write + write);

  // The disk is full: a pipe in the place of the temporary file, whose other end closes when it has some of the bytes.
  const std::wstring pipes = LR"(\\.\pipe\vlm_cloud_test)", pipe_path = pipes + L"\\icloud_kvs.txt.tmp";
  const auto pipe =
      own_handle(CreateNamedPipeW(pipe_path.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE, 1, 0, 4096, 0, nullptr));
  const OnThread disk{[&] {
    char bytes[16];
    DWORD size;
    ConnectNamedPipe(pipe.get(), nullptr);
    ReadFile(pipe.get(), bytes, sizeof bytes, &size, nullptr);
    DisconnectNamedPipe(pipe.get());
  }};
  CHECK_EQ(run_guest(L"change_once", pipes), "[kvs] write error while saving icloud_kvs.txt\n");
}

TEST_CASE("another program holds the store, and the next start takes the state beside it") {
  begin_with(old_state);
  UniqueHandle held = hold(store_path);
  const std::string kept = "[kvs] cannot replace icloud_kvs.txt (win32 32): the cloud save is kept in icloud_kvs.txt.";
  CHECK_EQ(run_guest(L"change_ten_times"), three_times(kept + "tmp\n" + kept + "tmp2\n"));
  held.reset();
  CHECK_EQ(read_file(store_path), old_state);
  check_changes("[kvs] took the newer state in icloud_kvs.txt.tmp2\n" + kept_as_bad, changed);
  CHECK_EQ(read_file(bad_path), old_state);
  CHECK_FALSE((exists(temporary_path) || exists(other_temporary_path)));
}

TEST_CASE("a game that is killed while it saves leaves the old state or the new one, whoever holds the store") {
  begin_with("");
  DeleteFileW(store_path.c_str());
  SetEnvironmentVariableW(L"VLM_SAVE_DIR", save_folder.c_str());
  const char* const rounds = std::getenv("VLM_TEST_KILLS");
  std::mt19937 random(84), held_random(85);
  std::int64_t kept = -1;
  int unfinished = 0;
  std::atomic<bool> ended = false;
  const OnThread other_program{[&] {
    for (; !ended; Sleep(held_random() % 40)) {
      const UniqueHandle held = hold(store_path);
      Sleep(held_random() % 40);
    }
  }};
  for (int round = 0; round < (rounds != nullptr ? std::atoi(rounds) : 60); ++round) {
    CAPTURE(round);
    const ToldProcess game = run_and_kill(L"cloud_guest", L"save_until_killed", "\n", random() % 60);
    const std::int64_t first = std::atoll(game.told.c_str());
    CHECK((game.exit_code == ToldProcess::killed && !game.told.contains("broken")));
    CHECK((first == kept || first == kept + 1));  // went on from what was kept, or from what was being saved
    kept = std::atoll(last_line(game.told).c_str());
    unfinished += exists(temporary_path) || exists(other_temporary_path);
  }
  ended = true;
  SetEnvironmentVariableW(L"VLM_SAVE_DIR", nullptr);
  CHECK_GT(unfinished, 0);  // the kills hit what they were aimed at
}
