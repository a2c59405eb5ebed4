// What a file is: the stat family, access and times. Owners and permissions of macOS have no counterpart here: all
// files are the first user's, and only the read-only attribute shows in the mode.
#include <windows.h>

#include <cstddef>
#include <cstring>

#include "posix/descriptors.h"
#include "posix/host_path.h"
#include "posix/shims.h"
#include "posix/time.h"
#include "support/darwin_errno.h"
#include "support/hash.h"
#include "support/sysv.h"

namespace vlm {
namespace {

/// `struct stat` of macOS with 64-bit inodes.
struct DarwinStat {
  std::int32_t device;
  std::uint16_t mode;
  std::uint16_t link_count;
  std::uint64_t inode;
  std::uint32_t user;
  std::uint32_t group;
  std::int32_t special_device;
  std::int32_t padding;
  DarwinTimespec accessed;
  DarwinTimespec modified;
  DarwinTimespec changed;
  DarwinTimespec created;
  std::int64_t size;
  std::int64_t blocks;  // of 512 bytes
  std::int32_t block_size;
  std::uint32_t flags;
  std::uint32_t generation;
  std::int32_t spare;
  std::int64_t more_spare[2];
};
static_assert(sizeof(DarwinStat) == 144 && offsetof(DarwinStat, inode) == 8 && offsetof(DarwinStat, accessed) == 32 &&
                  offsetof(DarwinStat, created) == 80 && offsetof(DarwinStat, size) == 96 &&
                  offsetof(DarwinStat, block_size) == 112 && offsetof(DarwinStat, more_spare) == 128,
              "read by game code");

constexpr std::uint16_t mode_fifo = 0x1180;              // 0600
constexpr std::uint16_t mode_character_device = 0x2190;  // 0620
constexpr std::uint16_t mode_directory = 0x41ED;         // 0755
constexpr std::uint16_t mode_regular = 0x81A4;           // 0644
constexpr std::uint16_t mode_read_only = 0x8124;         // 0444
constexpr std::uint16_t mode_link = 0xA1ED;              // 0755

constexpr std::int32_t access_write = 2;

DarwinTimespec darwin_time(FILETIME time) {
  const std::uint64_t ticks = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  if (ticks < file_time_of_1970) return {};
  const std::uint64_t since = ticks - file_time_of_1970;
  return {static_cast<std::int64_t>(since / ticks_per_second),
          static_cast<std::int64_t>(since % ticks_per_second * 100)};
}

FILETIME file_time(DarwinTimeval time) {
  const std::uint64_t ticks = static_cast<std::uint64_t>(time.tv_sec) * ticks_per_second +
                              static_cast<std::uint64_t>(std::int64_t{time.tv_usec}) * 10 + file_time_of_1970;
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

std::uint16_t darwin_mode(DWORD attributes) {
  if (attributes & FILE_ATTRIBUTE_DIRECTORY) return mode_directory;
  return attributes & FILE_ATTRIBUTE_READONLY ? mode_read_only : mode_regular;
}

/// Both host structures name these fields alike.
template <class HostInformation>
DarwinStat darwin_stat(const HostInformation& host, std::uint64_t inode) {
  DarwinStat result{};
  result.device = 1;
  result.mode = darwin_mode(host.dwFileAttributes);
  result.link_count = 1;
  result.inode = inode;
  result.user = 501;
  result.group = 20;
  result.accessed = darwin_time(host.ftLastAccessTime);
  result.modified = darwin_time(host.ftLastWriteTime);
  result.changed = result.modified;
  result.created = darwin_time(host.ftCreationTime);
  result.size = static_cast<std::int64_t>(std::uint64_t{host.nFileSizeHigh} << 32 | host.nFileSizeLow);
  result.blocks = (result.size + 511) / 512;
  result.block_size = 4096;
  return result;
}

/// The number of a file that is not open: a hash of its path, the same each time the game asks with the same text.
std::uint64_t path_hash(const char* path) { return fnv1a(path, 0x14650FB0739D0383); }

/// A file without a descriptor, for what its attributes say. Nobody is kept from it, and nobody keeps it from us.
UniqueHandle open_to_look(const wchar_t* path, DWORD flags = 0) {
  return own_handle(CreateFileW(path, FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr));
}

/// What the host calls a reparse point is a link, or a file that some service keeps elsewhere: a synchronised folder's
/// files are none to a game. A host that does not tell has links alone.
bool is_link(const wchar_t* path) {
  const UniqueHandle file = open_to_look(path, FILE_FLAG_OPEN_REPARSE_POINT);
  FILE_ATTRIBUTE_TAG_INFO info{};
  if (!file || !GetFileInformationByHandleEx(file.get(), FileAttributeTagInfo, &info, sizeof info)) return true;
  return info.ReparseTag == 0 || IsReparseTagNameSurrogate(info.ReparseTag);
}

std::int32_t stat_path(const char* game_path, DarwinStat* result, bool follow) {
  const HostPath path(game_path);
  if (!path) return -1;
  if (result == nullptr) return fail(DARWIN_EFAULT);
  WIN32_FILE_ATTRIBUTE_DATA host;
  if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &host)) return fail_from_win32();
  *result = darwin_stat(host, path_hash(game_path));
  if (!(host.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) return 0;
  if (!follow && is_link(path.c_str())) {
    result->mode = mode_link;
    return 0;
  }
  // What is behind it.
  const UniqueHandle file = open_to_look(path.c_str());
  BY_HANDLE_FILE_INFORMATION target;
  if (!file || !GetFileInformationByHandle(file.get(), &target)) return fail_from_win32();
  *result = darwin_stat(target, std::uint64_t{target.nFileIndexHigh} << 32 | target.nFileIndexLow);
  return 0;
}

SYSV std::int32_t stat_(const char* path, DarwinStat* result) { return stat_path(path, result, true); }
SYSV std::int32_t lstat_(const char* path, DarwinStat* result) { return stat_path(path, result, false); }

SYSV std::int32_t fstat_(std::int32_t number, DarwinStat* result) {
  const Descriptor descriptor = find_descriptor(number);
  if (!descriptor) return -1;
  if (result == nullptr) return fail(DARWIN_EFAULT);
  if (descriptor.kind == DescriptorKind::Pipe || descriptor.kind == DescriptorKind::Standard) {
    *result = {};
    result->mode = descriptor.kind == DescriptorKind::Pipe ? mode_fifo : mode_character_device;
    result->block_size = 4096;
    return 0;
  }
  BY_HANDLE_FILE_INFORMATION host;
  if (!GetFileInformationByHandle(descriptor.handle, &host)) return fail_from_win32();
  *result = darwin_stat(host, std::uint64_t{host.nFileIndexHigh} << 32 | host.nFileIndexLow);
  return 0;
}

SYSV std::int32_t access_(const char* game_path, std::int32_t mode) {
  const HostPath path(game_path);
  if (!path) return -1;
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return fail_from_win32();
  const bool read_only = (attributes & FILE_ATTRIBUTE_READONLY) && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
  return (mode & access_write) && read_only ? fail(DARWIN_EACCES) : 0;
}

SYSV std::int32_t chmod_(const char*, std::uint16_t) { return 0; }
SYSV std::int32_t lchflags_(const char*, std::uint32_t) { return 0; }

SYSV std::int32_t utimes_(const char* game_path, const DarwinTimeval* times) {
  const HostPath path(game_path);
  if (!path) return -1;
  const UniqueHandle file = own_handle(CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES,
                                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                   OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (!file) return fail_from_win32();
  FILETIME accessed, modified;
  if (times != nullptr) {
    accessed = file_time(times[0]);
    modified = file_time(times[1]);
  } else {
    GetSystemTimeAsFileTime(&accessed);
    modified = accessed;
  }
  return SetFileTime(file.get(), nullptr, &accessed, &modified) ? 0 : fail_from_win32();
}

}  // namespace

const ShimEntry file_status_rows[] = {
    {"_stat$INODE64", shim(stat_)}, {"_lstat$INODE64", shim(lstat_)}, {"_fstat$INODE64", shim(fstat_)},
    {"_stat", shim(stat_)},         {"_lstat", shim(lstat_)},         {"_fstat", shim(fstat_)},
    {"_access", shim(access_)},     {"_chmod", shim(chmod_)},         {"_lchflags", shim(lchflags_)},
    {"_utimes", shim(utimes_)},
};
constinit const ShimRows file_status_shims = file_status_rows;

}  // namespace vlm
