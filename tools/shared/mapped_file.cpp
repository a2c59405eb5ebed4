#include "shared/mapped_file.h"

#include <cstring>
#include <filesystem>
#include <memory>

#include "shared/console.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace vlm::tools {
namespace {

/// Why a path cannot be a file to read, as far as that shows before it is opened; null when nothing does.
const char* obstacle(const std::filesystem::path& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found) return "there is no such file";
  if (std::filesystem::is_directory(status)) return "it is a folder";
  return std::filesystem::is_regular_file(status) ? nullptr : "it is no file";
}

}  // namespace

#ifdef _WIN32

namespace {

struct HandleCloser {
  void operator()(void* handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

}  // namespace

Result<MappedFile> MappedFile::open(const std::string& path) {
  const std::filesystem::path place = path_of(path);
  if (const char* const why = obstacle(place)) return fault("%s", why);
  HANDLE opened = CreateFileW(place.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return fault("Windows does not open it (error %lu)", GetLastError());
  const Handle file(opened);
  LARGE_INTEGER size;
  if (!GetFileSizeEx(file.get(), &size)) return fault("its size cannot be read (error %lu)", GetLastError());
  MappedFile mapped;
  if (size.QuadPart == 0) return mapped;
  const Handle mapping(CreateFileMappingW(file.get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
  const void* const view = mapping ? MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, 0) : nullptr;
  if (view == nullptr) return fault("it cannot be mapped into memory (error %lu)", GetLastError());
  mapped.bytes_ = {static_cast<const std::byte*>(view), static_cast<std::size_t>(size.QuadPart)};
  return mapped;
}

MappedFile::~MappedFile() {
  if (!bytes_.empty()) UnmapViewOfFile(bytes_.data());
}

#else

Result<MappedFile> MappedFile::open(const std::string& path) {
  if (const char* const why = obstacle(path)) return fault("%s", why);
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return fault("%s", std::strerror(errno));
  const off_t size = lseek(file, 0, SEEK_END);
  void* const view =
      size > 0 ? mmap(nullptr, static_cast<std::size_t>(size), PROT_READ, MAP_PRIVATE, file, 0) : nullptr;
  const int error = errno;
  close(file);
  if (size < 0 || view == MAP_FAILED) return fault("%s", std::strerror(error));
  MappedFile mapped;
  if (size > 0) mapped.bytes_ = {static_cast<const std::byte*>(view), static_cast<std::size_t>(size)};
  return mapped;
}

MappedFile::~MappedFile() {
  if (!bytes_.empty()) munmap(const_cast<std::byte*>(bytes_.data()), bytes_.size());
}

#endif

}  // namespace vlm::tools
