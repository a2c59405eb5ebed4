#include "inspect/library.h"

#include <algorithm>

#include "host/shim_catalogue.h"
#include "shared/portable_executable.h"
#include "support/byte_reader.h"
#include "tessera/library_file.h"

namespace vlm::inspect {
namespace {

/// More than the library itself takes; bounds the work on a damaged file.
constexpr std::size_t max_rows = 4096;
constexpr std::size_t max_name = 4096;

Result<std::string_view> name_at(const tools::PortableExecutable& file, const char* pointer) {
  const auto bytes = file.bytes_at(reinterpret_cast<std::uintptr_t>(pointer));
  ByteReader in(bytes.first(std::min(bytes.size(), max_name)));
  const std::string_view name = in.c_string();
  if (!in.ok()) return fault("a name of its shim table is not in the file");
  return name;
}

/// The pointers that a family is read with hold addresses of the library: they are looked up, never followed.
Result<void> read_family(const tools::PortableExecutable& file, const ShimFamily& family, Library& library) {
  const auto family_name = name_at(file, family.name);
  if (!family_name) return std::unexpected(family_name.error());
  ByteReader place(file.bytes_at(reinterpret_cast<std::uintptr_t>(family.rows)));
  const auto rows = place.read<ShimRows>();
  if (!place.ok()) return fault("its shim table is damaged: family %zu has no rows", library.family_count);
  ByteReader in(file.bytes_at(reinterpret_cast<std::uintptr_t>(rows.data())));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto row = in.read<ShimEntry>();
    if (!in.ok() || ++library.row_count > max_rows) {
      return fault("its shim table is damaged: family %zu has %zu rows", library.family_count, rows.size());
    }
    const auto name = name_at(file, row.name);
    if (!name) return std::unexpected(name.error());
    if (row.address != nullptr) library.family_of.emplace(*name, *family_name);
  }
  ++library.family_count;
  return {};
}

}  // namespace

Result<Library> read_library(const char* path, std::span<const std::byte> bytes) {
  const auto list = tessera::embedded_patch_list(bytes);
  if (!list) return std::unexpected(list.error());
  const auto file = tools::PortableExecutable::open(bytes);
  if (!file) return std::unexpected(file.error());
  const auto families = file->section(shim_section);

  Library library;
  library.path = path;
  library.patch_list = *list;
  ByteReader in(families);
  while (in.left() >= sizeof(ShimFamily)) {
    if (auto read = read_family(*file, in.read<ShimFamily>(), library); !read) return std::unexpected(read.error());
  }
  return library;
}

}  // namespace vlm::inspect
