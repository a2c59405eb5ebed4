#include "objc/cloud_disk.h"

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "diag/log.h"
#include "support/handles.h"
#include "support/rename.h"
#include "support/windows_path.h"

namespace vlm {
namespace {

// Backups, virus scanners and services that synchronise folders hold a file for moments.
constexpr DWORD pause_ms = 50;
constexpr int read_attempts = 40;     // two seconds: what is taken for unreadable is lost to the game
constexpr int replace_attempts = 20;  // one second: the game waits

constexpr int most_kept = 10;
constexpr std::int64_t largest_store = 256 << 20;
constexpr std::uint32_t told_create_failures = 3, told_failures = 6;

struct StreamCloser {
  void operator()(std::FILE* stream) const noexcept { std::fclose(stream); }
};
using UniqueStream = std::unique_ptr<std::FILE, StreamCloser>;

/// A file as a start finds it.
struct FoundFile {
  DWORD error = 0;  // why it could not be read
  CloudFile content;
  FILETIME written{};

  bool exists() const { return error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND; }
  bool must_be_kept() const { return exists() && (error != 0 || content.damaged); }
  bool says_nothing() const { return error != 0 || (content.entries.empty() && !content.whole); }

  /// For another one that is whole. Numbers count where the other one came of this one, and this one has a number:
  /// one from an editor, or from before there were numbers, has its time alone.
  bool is_older_than(const FoundFile& other) const {
    if (says_nothing()) return true;
    if (content.whole && !other.content.apart) return content.save_number < other.content.save_number;
    return CompareFileTime(&written, &other.written) < 0;
  }
};

DWORD read_bytes(const std::wstring& path, std::string& bytes, FILETIME& written) {
  const UniqueHandle file =
      own_handle(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                             nullptr, OPEN_EXISTING, 0, nullptr));
  LARGE_INTEGER size;
  if (!file || !GetFileSizeEx(file.get(), &size)) return GetLastError();
  if (size.QuadPart > largest_store) return ERROR_FILE_TOO_LARGE;
  GetFileTime(file.get(), nullptr, nullptr, &written);
  bytes.resize(static_cast<std::size_t>(size.QuadPart));
  DWORD done = 0;
  if (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr)) return GetLastError();
  bytes.resize(done);
  return 0;
}

FoundFile find_file(const std::wstring& path) {
  FoundFile found;
  std::string bytes;
  for (int attempt = 0;; ++attempt) {
    found.error = read_bytes(path, bytes, found.written);
    const bool is_held = found.error == ERROR_SHARING_VIOLATION || found.error == ERROR_LOCK_VIOLATION;
    if (!is_held || attempt == read_attempts) break;
    Sleep(pause_ms);
  }
  if (found.error == 0) found.content = read_cloud_file(bytes);
  return found;
}

/// Whether a file had the attribute and has it no more. A save matters more than how its file was marked.
bool take_read_only_off(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) return false;
  if (!(attributes & FILE_ATTRIBUTE_READONLY)) return false;
  return SetFileAttributesW(path.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
}

/// Null with errno and the last error.
UniqueStream open_to_write(const std::wstring& path, const wchar_t* mode) {
  UniqueStream stream(_wfopen(path.c_str(), mode));
  if (!stream && GetLastError() == ERROR_ACCESS_DENIED) {
    if (take_read_only_off(path)) {
      stream.reset(_wfopen(path.c_str(), mode));
    } else {
      SetLastError(ERROR_ACCESS_DENIED);
    }
  }
  return stream;
}

/// False when a byte did not reach the disk, as far as the host tells.
bool write_and_close(UniqueStream stream, const std::string& bytes) {
  std::setvbuf(stream.get(), nullptr, _IONBF, 0);  // it is all there already
  bool written = std::fwrite(bytes.data(), 1, bytes.size(), stream.get()) == bytes.size();
  // A file system that has nothing to flush may say so.
  const HANDLE file = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream.get())));
  if (written && !FlushFileBuffers(file)) {
    const DWORD error = GetLastError();
    written = error == ERROR_INVALID_FUNCTION || error == ERROR_NOT_SUPPORTED;
  }
  return std::fclose(stream.release()) == 0 && written;
}

/// Gives the file this size; what is longer becomes zeros. False on a full disk, and nothing has changed.
bool resize(std::FILE* stream, std::int64_t size) {
  FILE_END_OF_FILE_INFO end;
  end.EndOfFile.QuadPart = size;
  const HANDLE file = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  return SetFileInformationByHandle(file, FileEndOfFileInfo, &end, sizeof end);
}

}  // namespace

CloudDisk::File::File(const std::string& name) : name(name) {
  if (const WindowsPath host(name.c_str()); host) path = host.c_str();
}

CloudDisk::CloudDisk(const std::string& folder)
    : store_(folder + "/icloud_kvs.txt"),
      temporaries_{File(folder + "/icloud_kvs.txt.tmp"), File(folder + "/icloud_kvs.txt.tmp2")} {}

std::vector<CloudEntry> CloudDisk::load() {
  const FoundFile store = find_file(store_.path);
  keep_store_ = store.must_be_kept();
  store_error_ = store.error;
  const FoundFile temporaries[] = {find_file(temporaries_[0].path), find_file(temporaries_[1].path)};
  const FoundFile* newest = &store;
  for (int i = 0; i < 2; ++i) {
    saves_ = std::max(saves_, temporaries[i].content.save_number);
    if (!temporaries[i].content.whole || !newest->is_older_than(temporaries[i])) continue;
    newest = &temporaries[i];
    waiting_ = i;
  }
  saves_ = std::max(saves_, store.content.save_number);
  if (waiting_ >= 0) {
    keep_store_ = keep_store_ || (newest->content.apart && store.exists());
    log_message(0, "[kvs] took the newer state in %s", temporaries_[waiting_].name.c_str());
    if (put_in_place(temporaries_[waiting_])) waiting_ = -1;
  }
  if (waiting_ != 1 && temporaries[1].exists()) DeleteFileW(temporaries_[1].path.c_str());
  return newest->content.entries;
}

/// Counts a failure; true when fewer than `told` came before, so that a disk that stays full does not fill the log.
bool CloudDisk::is_told(std::uint32_t told) { return failures_++ < told; }

void CloudDisk::save(CloudFileWriter& entries) {
  const std::string& bytes = entries.finish(++saves_, keep_store_);
  const int free = waiting_ == 0 ? 1 : 0;
  const File& temporary = temporaries_[free];
  UniqueStream stream = open_to_write(temporary.path, L"wb");
  if (!stream) {
    const int number = errno;
    const DWORD error = GetLastError();
    if (error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL) {  // nor is there room for more in the store
      if (is_told(told_failures)) {
        log_message(0, "[kvs] cannot write %s (errno %d, win32 %lu): cloud save NOT stored", store_.name.c_str(),
                    number, error);
      }
      return;
    }
    if (is_told(told_create_failures)) {
      log_message(0, "[kvs] cannot create %s (errno %d, win32 %lu); writing in place", temporary.name.c_str(), number,
                  error);
    }
    write_in_place(bytes);
    return;
  }
  if (!write_and_close(std::move(stream), bytes)) {
    DeleteFileW(temporary.path.c_str());  // the store keeps what it had
    if (is_told(told_failures)) log_message(0, "[kvs] write error while saving %s", store_.name.c_str());
    return;
  }
  const DWORD error = put_in_place_patiently(temporary);
  forget_waiting();
  if (error == 0) return;
  waiting_ = free;
  if (is_told(told_failures)) {
    log_message(0, "[kvs] cannot replace %s (win32 %lu): the cloud save is kept in %s", store_.name.c_str(), error,
                temporary.name.c_str());
  }
}

/// The last resort, where no other file can be made. What was there is overwritten once there is room for all.
void CloudDisk::write_in_place(const std::string& bytes) {
  UniqueStream stream;
  if (!keep_store_ || move_store_aside()) {
    stream = open_to_write(store_.path, L"r+b");
    if (!stream && GetLastError() == ERROR_FILE_NOT_FOUND) stream = open_to_write(store_.path, L"wb");
  }
  if (!stream) {
    const int number = errno;
    const DWORD error = GetLastError();
    if (is_told(told_failures)) {
      log_message(0, "[kvs] cannot write %s (errno %d, win32 %lu): cloud save NOT stored", store_.name.c_str(), number,
                  error);
    }
    return;
  }
  const bool has_room = resize(stream.get(), static_cast<std::int64_t>(bytes.size()));
  if (has_room && write_and_close(std::move(stream), bytes)) {
    forget_waiting();
  } else if (is_told(told_failures)) {
    log_message(0, "[kvs] write error while saving %s", store_.name.c_str());
  }
}

/// A state that is older than the store, or than another one that waits, has nothing to wait for.
void CloudDisk::forget_waiting() {
  if (waiting_ >= 0) DeleteFileW(temporaries_[waiting_].path.c_str());
  waiting_ = -1;
}

bool CloudDisk::move_store_aside() {
  for (int number = 1; number <= most_kept; ++number) {
    const File kept(store_.name + ".bad" + (number > 1 ? std::to_string(number) : ""));
    if (MoveFileExW(store_.path.c_str(), kept.path.c_str(), MOVEFILE_WRITE_THROUGH)) {
      log_message(0, "[kvs] kept %s as %s: it is damaged or could not be read (win32 %lu)", store_.name.c_str(),
                  kept.name.c_str(), store_error_);
      keep_store_ = false;
      return true;
    }
    const DWORD error = GetLastError();
    if (error == ERROR_FILE_NOT_FOUND) {  // somebody else took it away
      keep_store_ = false;
      return true;
    }
    if (error != ERROR_ALREADY_EXISTS && error != ERROR_FILE_EXISTS) return false;
  }
  return false;
}

/// Once; false with the last error.
bool CloudDisk::put_in_place(const File& state) {
  if (keep_store_ && !move_store_aside()) return false;
  const auto replace = [&] {
    return MoveFileExW(state.path.c_str(), store_.path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
  };
  bool done = replace();
  DWORD error = GetLastError();
  if (!done && error == ERROR_ACCESS_DENIED && take_read_only_off(store_.path)) {
    done = replace();
    error = GetLastError();
  }
  if (!done && error == ERROR_ACCESS_DENIED) {
    done = rename_as_posix(state.path.c_str(), store_.path.c_str(), true);
  }
  if (!done) SetLastError(error);
  return done;
}

/// Gives up after a second, and while that goes on at once, so that the game does not stand still at every save.
DWORD CloudDisk::put_in_place_patiently(const File& state) {
  for (int attempt = refused_ ? replace_attempts : 0;; ++attempt) {
    const DWORD error = put_in_place(state) ? 0 : GetLastError();
    const bool is_held = error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION ||
                         error == ERROR_LOCK_VIOLATION || error == ERROR_USER_MAPPED_FILE;
    refused_ = error != 0;
    if (!is_held || attempt == replace_attempts) return error;
    Sleep(pause_ms);
  }
}

}  // namespace vlm
