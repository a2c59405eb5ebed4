// The file of the cloud store, as processes of the game find it and leave it: cloud_guest.mm in a folder of its own,
// with files that are damaged, disks that fail and programs that hold files, and killed while it saves.
#include <doctest/doctest.h>

#include <atomic>
#include <cstdlib>
#include <random>
#include <regex>

#include "support/host_program.h"
#include "told_process.h"

using namespace vlm;
using namespace vlm::test;

HOST_SUITE(cloud)

namespace {

const std::wstring save_folder = program_folder() + L"cloud.tmp";
const std::wstring store_path = save_folder + L"\\icloud_kvs.txt";
const std::wstring temporary_path = store_path + L".tmp", other_temporary_path = store_path + L".tmp2";
const std::wstring bad_path = store_path + L".bad";

bool exists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

void remove(const std::wstring& path) {
  SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
  if (!DeleteFileW(path.c_str())) RemoveDirectoryW(path.c_str());
}

/// A folder for the game that is empty but for its store.
void begin_with(const std::string& store) {
  CreateDirectoryW(save_folder.c_str(), nullptr);
  for (const auto& path : {store_path, temporary_path, other_temporary_path, bad_path, store_path + L".bad2"}) {
    remove(path);
  }
  REQUIRE(write_file(store_path, store));
}

UniqueHandle hold(const std::wstring& path) {
  return own_handle(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

/// The log's lines about the store, without their time and thread, the folder left out.
std::string run_guest(const std::wstring& probe, std::wstring folder = save_folder) {
  const Ending ending = run_host(L"guests\\cloud_guest.dylib " + probe, {{L"VLM_SAVE_DIR", folder}});
  CHECK_EQ(ending.exit_code, 0);  // the driver has printed the checks that failed
  std::string messages;
  for (std::size_t at = 0; (at = ending.log.find("[kvs] ", at)) != std::string::npos; ++at) {
    messages += std::regex_replace(ending.log.substr(at, ending.log.find("\r\n", at) - at) + "\n",
                                   std::regex(R"(\S*/(icloud_kvs))"), "$1");
  }
  return messages;
}

std::string three_times(const std::string& text) { return text + text + text; }

/// The entries of a file that is whole.
std::string entries_of(const std::wstring& path) {
  const std::string bytes = read_file(path);
  const std::size_t proof = bytes.rfind("#whole ");
  return proof != std::string::npos && bytes.ends_with('\n') ? bytes.substr(0, proof) : "not whole: " + bytes;
}

/// Runs on a thread of its own while this lives.
template <class Work>
struct OnThread {
  static DWORD WINAPI run(void* self) { return static_cast<OnThread*>(self)->work(), 0; }
  Work work;
  UniqueHandle thread = own_handle(CreateThread(nullptr, 0, run, this, 0, nullptr));
  ~OnThread() { CHECK_EQ(WaitForSingleObject(thread.get(), 30'000), WAIT_OBJECT_0); }
};

const std::string old_state = "s\told\tstate\n", changed = "i\tchange\t9\n";

/// Ten changes: what the log tells of them, and what is in the store then.
void check_changes(const std::string& messages, const std::string& entries) {
  CHECK_EQ(run_guest(L"change_ten_times"), messages);
  CHECK_EQ(entries_of(store_path), entries);
}

std::string kept_as(const char* kept, int error) {
  return std::string("[kvs] kept icloud_kvs.txt as icloud_kvs.txt.") + kept +
         ": it is damaged or could not be read (win32 " + std::to_string(error) + ")\n";
}

}  // namespace

TEST_CASE("the store and its plug-in functions do what game code expects") {
  begin_with("i\tgames\t41\r\ns\tname\ta\\tb\r\nd\tratio\t0.1\r\n");
  CHECK_EQ(run_guest(L""), "");
  CHECK_FALSE(exists(temporary_path));
}

TEST_CASE("what is not understood is kept beside the store") {
  static const std::string cases[][2] = {
      {old_state + "s\tcu", old_state},
      {std::string(4096, '\0'), ""},
      {"", ""},
  };
  for (const auto& [store, understood] : cases) {
    CAPTURE(store);
    begin_with(store);
    check_changes(kept_as("bad", 0), understood + changed);
    CHECK_EQ(read_file(bad_path), store);
  }
  remove(store_path);
  REQUIRE(CreateDirectoryW(store_path.c_str(), nullptr));  // beside the .bad of the last case
  check_changes(kept_as("bad2", 5), changed);
  CHECK((GetFileAttributesW((bad_path + L"2").c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0);
}

TEST_CASE("a change that a disk refuses stays in memory, and the log tells of the first ones") {
  begin_with(old_state + "#whole 3 0123456789abcdef\n");  // as an editor leaves it
  SetFileAttributesW(store_path.c_str(), FILE_ATTRIBUTE_READONLY);
  check_changes("", old_state + changed);  // not even that
  CHECK_FALSE(exists(bad_path));

  const auto cannot_create = [](const char* error) {
    return std::string("[kvs] cannot create icloud_kvs.txt.tmp (errno ") + error + "); writing in place\n";
  };
  REQUIRE(CreateDirectoryW(temporary_path.c_str(), nullptr));  // its name is taken
  check_changes(three_times(cannot_create("13, win32 5")), old_state + changed);

  const std::string create = cannot_create("2, win32 3");  // there is no folder
  const std::string write = "[kvs] cannot write icloud_kvs.txt (errno 2, win32 3): cloud save NOT stored\n";
  CHECK_EQ(run_guest(L"change_ten_times", save_folder + L"\\none\\none"), create + write + create + write + write);

  // The disk is full: a pipe in the place of the temporary file, whose other end closes when it has some of the bytes.
  const std::wstring pipes = LR"(\\.\pipe\vlm_cloud_test)", pipe_path = pipes + L"\\icloud_kvs.txt.tmp";
  const auto pipe =
      own_handle(CreateNamedPipeW(pipe_path.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE, 1, 0, 4096, 0, nullptr));
  REQUIRE(pipe);
  const OnThread disk{[&] {
    char bytes[16];
    DWORD size;
    ConnectNamedPipe(pipe.get(), nullptr);
    ReadFile(pipe.get(), bytes, sizeof bytes, &size, nullptr);
    DisconnectNamedPipe(pipe.get());
  }};
  CHECK_EQ(run_guest(L"change_once", pipes), "[kvs] write error while saving icloud_kvs.txt\n");
  own_handle(CreateFileW(pipe_path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));  // if nobody came
}

TEST_CASE("another program holds the store, and the next start takes the state beside it") {
  begin_with(old_state);
  UniqueHandle held = hold(store_path);
  const std::string kept = "[kvs] cannot replace icloud_kvs.txt (win32 32): the cloud save is kept in icloud_kvs.txt.";
  CHECK_EQ(run_guest(L"change_ten_times"), three_times(kept + "tmp\n" + kept + "tmp2\n"));
  held.reset();
  CHECK_EQ(read_file(store_path), old_state);
  check_changes("[kvs] took the newer state in icloud_kvs.txt.tmp2\n" + kept_as("bad", 0), changed);
  CHECK_EQ(read_file(bad_path), old_state);
  CHECK_FALSE((exists(temporary_path) || exists(other_temporary_path)));

  held = hold(store_path);  // and lets it go while the game starts
  const OnThread thread{[&] { Sleep(1000), held.reset(); }};
  check_changes("", changed);
}

TEST_CASE("the folder has a long name in any script") {
  std::wstring folder = LR"(\\?\)" + save_folder;
  for (int depth = 0; depth < 5; ++depth) {
    CreateDirectoryW(folder.c_str(), nullptr);
    folder += L"\\Größe ボール \xD83C\xDFAE " + std::wstring(60, L'n');
  }
  CHECK_EQ(run_guest(L"change_ten_times", folder.substr(4)), "");
  CHECK_EQ(entries_of(folder + L"\\icloud_kvs.txt"), changed);
  remove(folder + L"\\icloud_kvs.txt");
  for (; folder.size() > save_folder.size() + 4; folder.resize(folder.rfind(L'\\'))) remove(folder);
}

TEST_CASE("a game that is killed while it saves leaves the old state or the new one, whoever holds the store") {
  begin_with("");
  remove(store_path);
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
    CHECK_EQ(game.exit_code, ToldProcess::killed);
    const std::int64_t first = std::atoll(game.told.c_str());
    CHECK_FALSE(game.told.contains("broken"));
    CHECK((first == kept || first == kept + 1));  // went on from what was kept, or from what was being saved
    kept = std::atoll(last_line(game.told).c_str());
    unfinished += exists(temporary_path) || exists(other_temporary_path);
  }
  ended = true;
  SetEnvironmentVariableW(L"VLM_SAVE_DIR", nullptr);
  MESSAGE(kept << " saves, " << unfinished << " temporary files left");
  CHECK_GT(unfinished, 0);  // the kills hit what they were aimed at
}
