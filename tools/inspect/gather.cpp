#include "inspect/gather.h"

#include <cstring>
#include <memory>

#include "macho/command_walk.h"
#include "macho/queries.h"
#include "shared/files.h"

namespace vlm::inspect {
namespace {

/// An image without its chained fixups: everything else of it can still be read.
std::vector<std::byte> without_chained_fixups(std::span<const std::byte> slice) {
  std::vector<std::byte> copy(slice.begin(), slice.end());
  macho_walk_commands(slice, [&](std::uint32_t cmd, const ByteReader& in) {
    constexpr std::uint32_t nothing = 0;
    if (cmd == LC_DYLD_CHAINED_FIXUPS) std::memcpy(copy.data() + in.offset(), &nothing, sizeof nothing);
  });
  return copy;
}

/// The symbol index for as long as the tool runs; see SymbolPlaces.
std::unique_ptr<std::byte[]> macho_index_symbols(const MachImage& image) {
  const std::size_t capacity = macho_section_symbols(image, {});
  auto memory = std::make_unique<std::byte[]>(sizeof(SymbolPlaces) + capacity * sizeof(SymbolPlace));
  auto* const places = new (memory.get()) SymbolPlaces{};
  if (capacity != 0) places->count = macho_section_symbols(image, {places->begin(), capacity});
  image.symbol_places = places;
  return memory;
}

}  // namespace

Facts gather(const char* path, std::span<const std::byte> file, const Library* library,
             const tessera::Progress& progress) {
  Facts facts;
  facts.path = path;
  if (library != nullptr) {
    facts.library = library->path;
    facts.library_rows = library->row_count;
    facts.library_families = library->family_count;
  }
  facts.format = gather_format(file);

  auto image = std::make_unique<MachImage>();
  std::vector<std::byte> copy;
  const auto read = tools::read_image(path, file, *image);
  bool readable = read.has_value();
  if (!read) facts.refusal = read.error().text;
  if (!read && facts.format.chained_fixups) {
    copy = without_chained_fixups({image->file_data, image->file_size});
    image = std::make_unique<MachImage>();
    readable = tools::read_image(path, copy, *image).has_value();
  }
  if (readable) {
    const auto index = macho_index_symbols(*image);
    facts.initializers = gather_initializers(*image, facts.format);
    if (!facts.format.chained_fixups) facts.linkage = gather_linkage(*image, library);
    if (const auto checked = tools::check_processor(*image); checked) {
      facts.unwind = gather_unwind(*image);
      facts.thread_storage = gather_thread_storage(*image, library, progress);
    } else if (facts.refusal.empty()) {
      facts.refusal = checked.error().text;
    }
    facts.objective_c = gather_objective_c(*image, facts.format, facts.linkage ? &*facts.linkage : nullptr);
  }
  judge(facts);
  return facts;
}

}  // namespace vlm::inspect
