// Game code's questions about the loaded images. The library itself is none of them.
#include <cstdint>

#include "macho/image.h"
#include "macho/queries.h"
#include "macho/symbol_index.h"
#include "posix/shims.h"
#include "support/sysv.h"

namespace vlm {
namespace {

SYSV std::uint32_t dyld_image_count_() { return static_cast<std::uint32_t>(macho_images().size()); }

SYSV std::uint64_t dyld_get_image_header_(std::uint32_t index) {
  const auto images = macho_images();
  return index < images.size() ? images[index]->base : 0;
}

SYSV const char* dyld_get_image_name_(std::uint32_t index) {
  const auto images = macho_images();
  return index < images.size() ? images[index]->path : nullptr;
}

/// The section's address and, in `size`, its bytes; 0, and `size` left alone, for one that is not there.
SYSV std::uint64_t getsectiondata_(std::uint64_t header, const char* segment, const char* section,
                                   std::uint64_t* size) {
  for (const MachImage* image : macho_images()) {
    if (image->base != header) continue;
    const MachSection* const found = macho_find_section(*image, segment, section);
    if (found == nullptr) return 0;
    *size = found->size;
    return found->addr;
  }
  return 0;
}

/// `Dl_info`, <dlfcn.h>.
struct SymbolInfo {
  const char* dli_fname;
  std::uint64_t dli_fbase;
  const char* dli_sname;
  std::uint64_t dli_saddr;
};
static_assert(sizeof(SymbolInfo) == 32);

SYSV std::int32_t dladdr_(std::uint64_t address, SymbolInfo* info) {
  for (const MachImage* image : macho_images()) {
    if (!image->contains(address)) continue;
    std::uint64_t distance = 0;
    macho_index_symbols(*image);
    const char* const name = macho_symbol_for_address(*image, address, &distance);
    *info = {image->path, image->base, name, name == nullptr ? 0 : address - distance};
    return 1;
  }
  return 0;
}

}  // namespace

const ShimEntry dyld_rows[] = {
    {"__dyld_image_count", shim(dyld_image_count_)},
    {"__dyld_get_image_header", shim(dyld_get_image_header_)},
    {"__dyld_get_image_name", shim(dyld_get_image_name_)},
    {"_getsectiondata", shim(getsectiondata_)},
    {"_dladdr", shim(dladdr_)},
};
constinit const ShimRows dyld_shims = dyld_rows;

}  // namespace vlm
