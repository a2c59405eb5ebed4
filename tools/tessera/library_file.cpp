#include "tessera/library_file.h"

#include <cstring>

#include "host/shim_catalogue.h"
#include "shared/portable_executable.h"
#include "tls/patch_list.h"

namespace vlm::tessera {

bool is_library(std::span<const std::byte> file) {
  const auto opened = tools::PortableExecutable::open(file);
  return opened && !opened->section(shim_section).empty();
}

Result<std::span<const std::byte>> without_patch_list(std::span<const std::byte> library) {
  const auto opened = tools::PortableExecutable::open(library);
  if (!opened) return std::unexpected(opened.error());
  if (opened->section(shim_section).empty()) {
    return fault("it has no section %s: give the GameAssembly.dll of this project, not the player's own", shim_section);
  }
  if (library.size() < gs_patch_trailer_size) return library;
  const auto trailer = library.last<gs_patch_trailer_size>();
  if (std::memcmp(trailer.data() + 8, gs_patch_end_magic, sizeof gs_patch_end_magic) != 0) return library;

  const auto size = gs_patch_blob_size(trailer);
  const std::size_t before = library.size() - gs_patch_trailer_size;
  if (!size || *size > before || *size < sizeof gs_patch_magic ||
      std::memcmp(library.data() + before - *size, gs_patch_magic, sizeof gs_patch_magic) != 0) {
    return fault("it ends in a damaged patch list; build the library anew");
  }
  return library.first(before - *size);
}

Result<std::span<const std::byte>> embedded_patch_list(std::span<const std::byte> library) {
  const auto own = without_patch_list(library);
  if (!own) return std::unexpected(own.error());
  const auto list = library.subspan(own->size());
  return list.empty() ? list : list.first(list.size() - gs_patch_trailer_size);
}

Result<std::vector<std::byte>> with_patch_list(std::span<const std::byte> library, std::span<const std::byte> list) {
  const auto own = without_patch_list(library);
  if (!own) return std::unexpected(own.error());
  std::vector<std::byte> file(own->begin(), own->end());
  file.insert(file.end(), list.begin(), list.end());
  return file;
}

}  // namespace vlm::tessera
