// A descriptor is a row of a fixed table. Writers take the lock; a reader takes none: the kind is stored last and read
// first, so that who sees a row taken sees its handle.
#include "posix/descriptors.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>

#include "abi/entries.h"
#include "posix/error_numbers.h"
#include "posix/host_path.h"
#include "posix/shims.h"
#include "support/locks.h"
#include "support/sysv.h"

namespace vlm {

constinit StandstillLock append_lock;

namespace {

// <fcntl.h> of macOS.
constexpr std::uint32_t open_access_mode = 3;
constexpr std::uint32_t open_write_only = 1;
constexpr std::uint32_t open_read_write = 2;
constexpr std::uint32_t open_append = 0x8;
constexpr std::uint32_t open_create = 0x200;
constexpr std::uint32_t open_truncate = 0x400;
constexpr std::uint32_t open_exclusive = 0x800;
constexpr std::int32_t duplicate_from = 0;
constexpr std::int32_t get_descriptor_flags = 1;
constexpr std::int32_t get_status_flags = 3;
constexpr std::int32_t set_status_flags = 4;
constexpr std::int32_t get_lock = 7;
constexpr std::int32_t duplicate_from_and_close_on_exec = 67;

/// `struct flock`.
struct DarwinLock {
  std::int64_t start, length;
  std::int32_t process;
  std::int16_t type, whence;
};
constexpr std::int16_t unlocked = 2;

constexpr std::int32_t close_on_exec = 1;
constexpr DWORD pipe_size = 65536;
constexpr DWORD copy_size = 65536;
constexpr std::uint64_t longest_transfer = 0x7FFFFFFF;

struct Row {
  std::atomic<DescriptorKind> kind;
  std::atomic<HANDLE> handle;
  std::atomic<std::uint32_t> flags;

  void fill(DescriptorKind new_kind, HANDLE new_handle, std::uint32_t new_flags) {
    handle.store(new_handle, std::memory_order_relaxed);
    flags.store(new_flags, std::memory_order_relaxed);
    kind.store(new_kind, std::memory_order_release);
  }
};

constexpr std::int32_t row_count = 4096;
constexpr std::int32_t first_free = 3;  // 0 to 2 are handed out by dup2 only

constinit Row rows[row_count];
constinit SrwLock table_lock;

bool is_number(std::int32_t number) { return number >= 0 && number < row_count; }

/// Moves a handle into the lowest free row from `lowest` upwards. -1, the handle still the
/// caller's, when there is none.
std::int32_t add_descriptor_locked(DescriptorKind kind, UniqueHandle& handle, std::uint32_t flags,
                                   std::int32_t lowest = first_free) {
  Row* const row = std::find_if(rows + std::max(lowest, first_free), rows + row_count, [](const Row& candidate) {
    return candidate.kind.load(std::memory_order_relaxed) == DescriptorKind::Free;
  });
  if (row == rows + row_count) return fail(DARWIN_EMFILE);
  row->fill(kind, handle.release(), flags);
  return static_cast<std::int32_t>(row - rows);
}

/// Frees a row. What comes back closes the handle, better without the lock.
UniqueHandle remove_descriptor_locked(Row& row) {
  const DescriptorKind kind = row.kind.load(std::memory_order_relaxed);
  row.kind.store(DescriptorKind::Free, std::memory_order_release);
  const bool owned = kind != DescriptorKind::Free && kind != DescriptorKind::Standard;
  return own_handle(owned ? row.handle.load(std::memory_order_relaxed) : nullptr);
}

bool can_seek(const Descriptor& descriptor) { return GetFileType(descriptor.handle) == FILE_TYPE_DISK; }

SYSV std::int32_t close_(std::int32_t number) {
  UniqueHandle handle;
  const std::lock_guard hold(table_lock);
  if (!find_descriptor(number)) return -1;
  handle = remove_descriptor_locked(rows[number]);
  return 0;
}

SYSV std::int64_t read_(std::int32_t number, void* buffer, std::uint64_t count) {
  const Descriptor descriptor = find_descriptor(number);
  if (!descriptor) return -1;
  if (descriptor.kind == DescriptorKind::Directory) return fail(DARWIN_EISDIR);
  if (count == 0) return 0;  // the host would wait for a writer of the pipe
  if (buffer == nullptr) return fail(DARWIN_EFAULT);
  DWORD done = 0;
  if (ReadFile(descriptor.handle, buffer, static_cast<DWORD>(std::min(count, longest_transfer)), &done, nullptr)) {
    return done;
  }
  const DWORD error = GetLastError();
  return error == ERROR_HANDLE_EOF || error == ERROR_BROKEN_PIPE ? 0 : fail_from_win32(error);
}

/// Writes at the file's end, wherever other threads and programs have moved it, and leaves the position behind that.
BOOL append(HANDLE file, const void* buffer, DWORD size, DWORD* done) {
  OVERLAPPED end = {};
  end.Offset = end.OffsetHigh = 0xFFFF'FFFF;
  const std::lock_guard hold(append_lock);
  return WriteFile(file, buffer, size, done, &end);
}

SYSV std::int64_t write_(std::int32_t number, const void* buffer, std::uint64_t count) {
  const Descriptor descriptor = find_descriptor(number);
  if (!descriptor) return -1;
  if (count == 0) return 0;  // a reader of the pipe would take it for the end
  if (buffer == nullptr) return fail(DARWIN_EFAULT);
  const auto size = static_cast<DWORD>(std::min(count, longest_transfer));
  const bool appends = (descriptor.flags & open_append) && can_seek(descriptor);
  DWORD done = 0;
  const BOOL written = appends ? append(descriptor.handle, buffer, size, &done)
                               : WriteFile(descriptor.handle, buffer, size, &done, nullptr);
  if (!written) return fail_from_win32();
  return done;
}

SYSV std::int64_t lseek_(std::int32_t number, std::int64_t offset, std::int32_t whence) {
  static_assert(FILE_BEGIN == 0 && FILE_CURRENT == 1 && FILE_END == 2, "the same on macOS");
  const Descriptor descriptor = find_descriptor(number);
  if (!descriptor) return -1;
  if (!can_seek(descriptor)) return fail(DARWIN_ESPIPE);
  // Whatever else it says is the end.
  const DWORD origin = whence == FILE_BEGIN ? FILE_BEGIN : whence == FILE_CURRENT ? FILE_CURRENT : FILE_END;
  LARGE_INTEGER distance, position;
  distance.QuadPart = offset;
  if (!SetFilePointerEx(descriptor.handle, distance, &position, origin)) return fail_from_win32();
  return position.QuadPart;
}

SYSV std::int32_t ftruncate_(std::int32_t number, std::int64_t length) {
  const Descriptor descriptor = find_descriptor(number);
  if (!descriptor) return -1;
  if (length < 0 || descriptor.kind == DescriptorKind::Directory || !can_seek(descriptor)) return fail(DARWIN_EINVAL);
  FILE_END_OF_FILE_INFO end;
  end.EndOfFile.QuadPart = length;
  return SetFileInformationByHandle(descriptor.handle, FileEndOfFileInfo, &end, sizeof end) ? 0 : fail_from_win32();
}

UniqueHandle duplicate(const Descriptor& descriptor) {
  HANDLE copy = nullptr;
  const HANDLE process = GetCurrentProcess();
  if (!DuplicateHandle(process, descriptor.handle, process, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) return nullptr;
  return own_handle(copy);
}

/// A duplicate is owned, whatever it is of.
DescriptorKind kind_of_duplicate(const Descriptor& descriptor) {
  return descriptor.kind == DescriptorKind::Standard ? DescriptorKind::File : descriptor.kind;
}

std::int32_t duplicate_upwards(const Descriptor& descriptor, std::int32_t lowest) {
  UniqueHandle copy = duplicate(descriptor);
  if (!copy) return fail(DARWIN_EBADF);
  const std::lock_guard hold(table_lock);
  return add_descriptor_locked(kind_of_duplicate(descriptor), copy, descriptor.flags, lowest);
}

SYSV std::int32_t dup_(std::int32_t number) {
  const Descriptor descriptor = find_descriptor(number);
  return descriptor ? duplicate_upwards(descriptor, first_free) : -1;
}

SYSV std::int32_t dup2_(std::int32_t number, std::int32_t target) {
  const Descriptor descriptor = find_descriptor(number);
  if (!descriptor) return -1;
  if (!is_number(target)) return fail(DARWIN_EBADF);
  if (target == number) return target;
  UniqueHandle copy = duplicate(descriptor);
  if (!copy) return fail(DARWIN_EBADF);
  UniqueHandle replaced;
  const std::lock_guard hold(table_lock);
  replaced = remove_descriptor_locked(rows[target]);
  rows[target].fill(kind_of_duplicate(descriptor), copy.release(), descriptor.flags);
  return target;
}

SYSV std::int32_t pipe_(std::int32_t* ends) {
  if (ends == nullptr) return fail(DARWIN_EFAULT);
  HANDLE read_handle = nullptr;
  HANDLE write_handle = nullptr;
  if (!CreatePipe(&read_handle, &write_handle, nullptr, pipe_size)) return fail(DARWIN_EMFILE);
  UniqueHandle read_end(read_handle);
  UniqueHandle write_end(write_handle);
  const std::lock_guard hold(table_lock);
  const std::int32_t read_number = add_descriptor_locked(DescriptorKind::Pipe, read_end, 0);
  if (read_number < 0) return -1;
  const std::int32_t write_number = add_descriptor_locked(DescriptorKind::Pipe, write_end, open_write_only);
  if (write_number < 0) {
    read_end = remove_descriptor_locked(rows[read_number]);
    return -1;
  }
  ends[0] = read_number;
  ends[1] = write_number;
  return 0;
}

SYSV std::int32_t isatty_(std::int32_t number) {
  if (number >= first_free) return 0;
  const Descriptor descriptor = find_descriptor(number);
  return descriptor && GetFileType(descriptor.handle) == FILE_TYPE_CHAR;
}

SYSV std::int32_t tcgetattr_(std::int32_t, void*) { return fail(DARWIN_ENOTTY); }
SYSV std::int32_t tcsetattr_(std::int32_t, std::int32_t, const void*) { return fail(DARWIN_ENOTTY); }
SYSV std::int32_t tcflush_(std::int32_t, std::int32_t) { return 0; }

SYSV std::int32_t fcopyfile_(std::int32_t from, std::int32_t to, void*, std::uint32_t) {
  const Descriptor source = find_descriptor(from);
  const Descriptor destination = find_descriptor(to);
  if (!source || !destination) return fail(DARWIN_EBADF);
  const UniqueHeap<std::byte> buffer(static_cast<std::byte*>(std::malloc(copy_size)));
  if (!buffer) return fail(DARWIN_ENOMEM);
  SetFilePointerEx(source.handle, {}, nullptr, FILE_BEGIN);
  // What a file holds now is all: one that is copied onto its own end would never come to it.
  LARGE_INTEGER left;
  if (!can_seek(source) || !GetFileSizeEx(source.handle, &left)) left.QuadPart = INT64_MAX;
  DWORD size = 0;
  for (; left.QuadPart > 0; left.QuadPart -= size) {
    const auto wanted = static_cast<DWORD>(std::min<std::int64_t>(left.QuadPart, copy_size));
    if (!ReadFile(source.handle, buffer.get(), wanted, &size, nullptr) || size == 0) break;
    DWORD written = 0;
    WriteFile(destination.handle, buffer.get(), size, &written, nullptr);
  }
  return 0;
}

}  // namespace

const ShimEntry descriptor_rows[] = {
    {"_close", shim(close_)},         {"_read", shim(read_)},           {"_write", shim(write_)},
    {"_lseek", shim(lseek_)},         {"_ftruncate", shim(ftruncate_)}, {"_dup", shim(dup_)},
    {"_dup2", shim(dup2_)},           {"_pipe", shim(pipe_)},           {"_isatty", shim(isatty_)},
    {"_tcgetattr", shim(tcgetattr_)}, {"_tcsetattr", shim(tcsetattr_)}, {"_tcflush", shim(tcflush_)},
    {"_fcopyfile", shim(fcopyfile_)}, {"_open", shim(open_entry)},      {"_fcntl", shim(fcntl_entry)},
    {"_ioctl", shim(ioctl_entry)},
};
constinit const ShimRows descriptor_shims = descriptor_rows;

Descriptor find_descriptor(std::int32_t number) {
  Descriptor found;
  if (is_number(number)) {
    const Row& row = rows[number];
    found.kind = row.kind.load(std::memory_order_acquire);
    found.handle = row.handle.load(std::memory_order_relaxed);
    found.flags = row.flags.load(std::memory_order_relaxed);
  }
  if (!found) shim_errno = DARWIN_EBADF;
  return found;
}

void set_up_standard_descriptors() {
  const std::lock_guard hold(table_lock);
  rows[0].fill(DescriptorKind::Standard, GetStdHandle(STD_INPUT_HANDLE), 0);
  rows[1].fill(DescriptorKind::Standard, GetStdHandle(STD_OUTPUT_HANDLE), open_write_only);
  rows[2].fill(DescriptorKind::Standard, GetStdHandle(STD_ERROR_HANDLE), open_write_only);
}

std::int32_t fail_from_win32(DWORD error) {
  switch (error) {
    case ERROR_NO_DATA: return fail(DARWIN_EPIPE);  // the reader of a pipe is gone
    case ERROR_NEGATIVE_SEEK: return fail(DARWIN_EINVAL);
    default: return fail(errno_from_win32(error));
  }
}

}  // namespace vlm

using namespace vlm;

extern "C" SYSV std::int32_t open_body(const char* game_path, std::int32_t given_flags, SysvVaList*) {
  const HostPath path(game_path);
  if (!path) return -1;
  const auto flags = static_cast<std::uint32_t>(given_flags);
  const std::uint32_t access_mode = flags & open_access_mode;

  const DWORD attributes = GetFileAttributesW(path.c_str());
  const bool is_directory = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
  DWORD disposition = flags & open_truncate ? TRUNCATE_EXISTING : OPEN_EXISTING;
  if (flags & open_create) {
    disposition = flags & open_exclusive ? CREATE_NEW : flags & open_truncate ? CREATE_ALWAYS : OPEN_ALWAYS;
  }
  DWORD access = GENERIC_READ;
  if (access_mode == open_write_only) access = GENERIC_WRITE;
  if (access_mode == open_read_write) access = GENERIC_READ | GENERIC_WRITE;
  if (disposition == TRUNCATE_EXISTING) access |= GENERIC_WRITE;  // the host's condition; macOS has none

  if (is_directory) {  // opens for reading, whatever else is asked: there is nothing to write or to cut
    if (disposition != CREATE_NEW) disposition = OPEN_EXISTING;
    access = GENERIC_READ;
  }

  UniqueHandle handle = own_handle(
      CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, disposition,
                  FILE_ATTRIBUTE_NORMAL | (is_directory ? FILE_FLAG_BACKUP_SEMANTICS : 0), nullptr));
  if (!handle) return fail_from_win32();
  const std::lock_guard hold(table_lock);
  return add_descriptor_locked(is_directory ? DescriptorKind::Directory : DescriptorKind::File, handle, flags);
}

extern "C" SYSV std::int32_t fcntl_body(std::int32_t number, std::int32_t command, SysvVaList* arguments) {
  const Descriptor descriptor = find_descriptor(number);
  if (!descriptor) return -1;
  switch (command) {
    case duplicate_from:
    case duplicate_from_and_close_on_exec: {
      const auto lowest = arguments->next<std::int32_t>();
      return is_number(lowest) ? duplicate_upwards(descriptor, lowest) : fail(DARWIN_EINVAL);
    }
    case get_descriptor_flags: return close_on_exec;
    case get_status_flags: return static_cast<std::int32_t>(descriptor.flags);
    case set_status_flags: {
      const std::lock_guard hold(table_lock);
      if (!find_descriptor(number)) return -1;
      rows[number].flags.store(arguments->next<std::uint32_t>(), std::memory_order_relaxed);
      return 0;
    }
    case get_lock: {  // nobody is kept from any part of a file
      auto* const lock = arguments->next<DarwinLock*>();
      if (lock == nullptr) return fail(DARWIN_EFAULT);
      lock->type = unlocked;
      return 0;
    }
    default: return 0;
  }
}

extern "C" SYSV std::int32_t ioctl_body(std::int32_t, std::uint64_t, SysvVaList*) { return fail(DARWIN_ENOTTY); }
