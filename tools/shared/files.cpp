#include "shared/files.h"

#include <cstdio>
#include <fstream>

#include "macho/commands.h"
#include "macho/queries.h"
#include "shared/console.h"

namespace vlm::tools {

std::optional<std::vector<std::byte>> read_file(const char* path) {
  std::ifstream file(path_of(path), std::ios::binary | std::ios::ate);
  if (!file || file.tellg() < 0) return std::nullopt;
  std::vector<std::byte> bytes(static_cast<std::size_t>(file.tellg()));
  file.seekg(0);
  if (!bytes.empty() && !file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))) {
    return std::nullopt;
  }
  return bytes;
}

bool write_file(const char* path, std::span<const std::byte> bytes) {
  const std::filesystem::path place = path_of(path), beside = path_of(path + std::string(".new"));
  std::error_code error;
  {
    std::ofstream file(beside, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
      std::filesystem::remove(beside, error);
      return false;
    }
  }
  std::filesystem::rename(beside, place, error);
  if (!error) return true;
  std::filesystem::remove(beside, error);
  return false;
}

std::optional<std::string> read_image(const char* path, std::span<const std::byte> file, MachImage& image) {
  const auto slice = macho_choose_slice(path, file, file.size());
  if (!slice) return slice.error().text;
  std::snprintf(image.path, sizeof image.path, "%s", path);
  image.file_data = file.data() + slice->offset;
  image.file_size = slice->size;
  if (const auto read = macho_read_commands(image); !read) return read.error().text;
  image.base = image.vm_min;
  return std::nullopt;
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
  return place + " (" + symbol + (offset == 0 ? "" : number) + ")";
}

}  // namespace vlm::tools
