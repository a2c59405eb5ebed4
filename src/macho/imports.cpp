#include "macho/imports.h"

#include <cstring>

#include "macho/format.h"
#include "macho/queries.h"

namespace vlm {
namespace {

const char* last_component(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

bool names_library(const MachImage& image, std::int32_t ordinal) { return ordinal > 0 && ordinal <= image.dylib_count; }

std::uint64_t look_up_in_images(const MachImage& image, const Import& import, const SymbolSources& sources,
                                std::uint64_t& bytes_read) {
  const char* install_name = image.dylib_names[import.ordinal - 1];
  for (const MachImage* other : sources.images) {
    const char* slash = std::strrchr(other->path, '/');
    if (other == &image || slash == nullptr || std::strstr(install_name, slash + 1) == nullptr) continue;
    if (const std::uint64_t address = macho_find_export(*other, import.name, &bytes_read)) return address;
  }
  return 0;
}

std::uint64_t value_of(const void* address) { return reinterpret_cast<std::uintptr_t>(address); }

}  // namespace

const char* macho_import_library(const MachImage& image, std::int32_t ordinal) {
  if (ordinal == 0) return "self";
  return names_library(image, ordinal) ? last_component(image.dylib_names[ordinal - 1]) : "flat";
}

ResolvedImport macho_resolve_import(const MachImage& image, const Import& import, const SymbolSources& sources,
                                    std::uint64_t& bytes_read) {
  using enum ImportAnswer;
  if (import.ordinal == 0) {
    if (const std::uint64_t own = macho_find_export(image, import.name, &bytes_read)) return {own_export, own};
  } else if (names_library(image, import.ordinal)) {
    if (const std::uint64_t address = look_up_in_images(image, import, sources, bytes_read)) {
      return {other_image, address};
    }
  }
  const char* library = macho_import_library(image, import.ordinal);
  if (const void* address = sources.lookup_shim(library, import.name.data())) return {shim, value_of(address)};
  if (import.flags & BIND_SYMBOL_FLAGS_WEAK_IMPORT) return {weak_null, 0};
  return {missing, value_of(sources.make_missing_symbol(library, import.name.data()))};
}

}  // namespace vlm
