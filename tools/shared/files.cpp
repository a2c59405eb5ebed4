#include "shared/files.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "macho/commands.h"
#include "macho/format.h"
#include "macho/queries.h"
#include "shared/console.h"
#include "shared/text.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace vlm::tools {
namespace {

namespace fs = std::filesystem;

/// Every GameAssembly.dylib below a folder. Links are not followed, so that there is an end.
void collect_images(const fs::path& folder, std::vector<fs::path>& images) {
  std::error_code error;
  for (fs::recursive_directory_iterator at(folder, fs::directory_options::skip_permission_denied, error), end;
       !error && at != end; at.increment(error)) {
    std::error_code unknown;
    if (at->path().filename() == image_name && at->is_regular_file(unknown)) images.push_back(at->path());
  }
}

/// Applications in a folder: folders named *.app with Contents.
std::vector<fs::path> applications_in(const fs::path& folder) {
  std::vector<fs::path> applications;
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    std::error_code unknown;
    if (at->path().extension() == ".app" && fs::is_directory(at->path() / "Contents", unknown)) {
      applications.push_back(at->path());
    }
  }
  return applications;
}

}  // namespace

Result<std::string> find_image(const std::string& path) {
  const fs::path place = path_of(path);
  std::error_code error;
  if (!fs::is_directory(place, error)) return path;
  std::vector<fs::path> images;
  if (fs::is_directory(place / "Contents", error)) {
    collect_images(place / "Contents", images);
  } else if (fs::is_regular_file(place / image_name, error)) {
    images.push_back(place / image_name);
  } else {
    const auto applications = applications_in(place);
    if (applications.empty()) {
      return fault("it is a folder without %s and without a Mac application in it", image_name);
    }
    for (const fs::path& application : applications) collect_images(application / "Contents", images);
  }
  if (images.empty()) return fault("there is no %s below Contents: is it the right application?", image_name);
  if (images.size() == 1) return utf8_of(images[0]);
  std::ranges::sort(images);
  return fault("there are %zu files named %s, name one of them: %s, %s%s", images.size(), image_name,
               printable(utf8_of(images[0])).c_str(), printable(utf8_of(images[1])).c_str(),
               images.size() > 2 ? ", ..." : "");
}

std::string find_library() {
  std::error_code error;
  const fs::path folder = program_folder();
  for (const fs::path& place : {folder / library_name, folder.parent_path() / library_name}) {
    if (fs::is_regular_file(place, error)) return utf8_of(place);
  }
  return {};
}

#ifdef _WIN32

Result<void> write_through(const fs::path& path, std::span<const std::byte> bytes) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return std::unexpected(Fault{std::system_category().message(int(GetLastError()))});
  DWORD error = ERROR_SUCCESS;
  while (!bytes.empty() && error == ERROR_SUCCESS) {
    DWORD written = 0;
    const auto size = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), 1u << 26));
    if (!WriteFile(file, bytes.data(), size, &written, nullptr)) error = GetLastError();
    bytes = bytes.subspan(written);
  }
  if (error == ERROR_SUCCESS && !FlushFileBuffers(file)) error = GetLastError();
  CloseHandle(file);
  if (error == ERROR_SUCCESS) return {};
  DeleteFileW(path.c_str());
  return std::unexpected(Fault{std::system_category().message(static_cast<int>(error))});
}

#else

Result<void> write_through(const fs::path& path, std::span<const std::byte> bytes) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0) return std::unexpected(Fault{std::strerror(errno)});
  int error = 0;
  while (!bytes.empty() && error == 0) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0) {
      error = errno;
    } else {
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
  }
  if (error == 0 && fsync(file) != 0) error = errno;
  if (close(file) != 0 && error == 0) error = errno;
  if (error == 0) return {};
  unlink(path.c_str());
  return std::unexpected(Fault{std::strerror(error)});
}

#endif

bool write_file(const std::string& path, std::span<const std::byte> bytes) {
  const fs::path place = path_of(path), beside = path_of(path + ".new");
  if (!write_through(beside, bytes)) return false;
  std::error_code error;
  fs::rename(beside, place, error);
  if (!error) return true;
  fs::remove(beside, error);
  return false;
}

bool is_same_file(const std::string& one, const std::string& other) {
  std::error_code error;
  if (fs::equivalent(path_of(one), path_of(other), error)) return true;
  const auto full = [&](const std::string& path) { return fs::weakly_canonical(path_of(path), error); };
  return full(one) == full(other);
}

Result<void> read_image(const std::string& path, std::span<const std::byte> file, MachImage& image) {
  const auto slice = macho_choose_slice(path.c_str(), file, file.size());
  if (!slice) return std::unexpected(Fault{slice.error().text});
  std::snprintf(image.path, sizeof image.path, "%s", path.c_str());
  image.file_data = file.data() + slice->offset;
  image.file_size = slice->size;
  if (const auto read = macho_read_commands(image); !read) return std::unexpected(Fault{read.error().text});
  image.base = image.vm_min;
  return {};
}

Result<void> check_processor(const MachImage& image) {
  MachHeader64 header;
  std::memcpy(&header, image.file_data, sizeof header);
  if (header.cputype == CPU_TYPE_X86_64) return {};
  return fault("its code is for %s, not x86-64", cpu_name(header.cputype).c_str());
}

Result<std::unique_ptr<ImageFile>> open_image(const std::string& path) {
  auto file = MappedFile::open(path);
  if (!file) return std::unexpected(file.error());
  auto opened = std::make_unique<ImageFile>();
  opened->file = std::move(*file);
  if (const auto read = read_image(path, opened->file.bytes(), opened->image); !read) {
    return std::unexpected(read.error());
  }
  if (const auto checked = check_processor(opened->image); !checked) return std::unexpected(checked.error());
  return opened;
}

std::string cpu_name(std::uint32_t cputype) {
  switch (cputype) {
    case 7: return "i386";
    case 12: return "arm";
    case CPU_TYPE_X86_64: return "x86-64";
    case 0x0100000C: return "arm64";
    default:
      return "cpu " + [&] {
        char text[16];
        std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(cputype));
        return std::string(text);
      }();
  }
}

std::string describe_place(const MachImage& image, std::uint64_t vmaddr) {
  using Wide = unsigned long long;  // what %llx prints, on every system
  char number[40];
  std::snprintf(number, sizeof number, "0x%llx", Wide{vmaddr});
  const std::string place = number;
  std::uint64_t offset = 0;
  const char* const symbol = macho_symbol_for_address(image, vmaddr, &offset);
  if (symbol == nullptr) return place + " (no symbol)";
  std::snprintf(number, sizeof number, "+0x%llx", Wide{offset});
  return place + " (" + printable(symbol) + (offset == 0 ? "" : number) + ")";
}

}  // namespace vlm::tools
