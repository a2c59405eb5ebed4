#include "fuzz/image_run.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "macho/commands.h"
#include "macho/fixups.h"
#include "macho/queries.h"
#include "support/good_image.h"

namespace vlm::test {
namespace {

struct Free {
  void operator()(void* block) const { std::free(block); }
};
using Block = std::unique_ptr<std::byte, Free>;

std::uint64_t look_ups;

const void* fake_lookup(const char* library, const char* name) {
  ++look_ups;
  return std::strlen(library) + std::strlen(name) > 20 ? nullptr : name;
}

const void* fake_missing(const char*, const char* name) { return name; }

/// A sound image that others may import from.
MachImage& other_image() {
  static const Bytes file = build_image(good_draft());
  static MachImage* const image = [] {
    auto* made = new MachImage{};
    std::snprintf(made->path, sizeof made->path, "/games/run/libOther.dylib");
    made->file_data = file.data();
    made->file_size = file.size();
    if (!read_commands(*made)) std::abort();
    made->base = 0x500000000000;
    return made;
  }();
  return *image;
}

/// Everything that is asked of a loaded image; the sanitizers watch.
void ask(const MachImage& image) {
  for (const char* name : {"", "_game_start", "_g", "_stub", "_elsewhere", "_constant", "_aaaaaaaaaaaaaaaaaaaaaa"}) {
    macho_find_export(image, name);
    macho_symbol_by_name(image, name);
  }
  for (const std::uint64_t address : {image.base - 1, image.base, image.base + image.extent() / 2,
                                      image.base + image.extent() - 1, image.base + image.extent()}) {
    std::uint64_t offset = 0;
    const char* name = macho_symbol_for_address(image, address, &offset);
    if (name != nullptr && std::strlen(name) > image.strsize) std::abort();
  }
  macho_find_section(image, "__TEXT", "__text");
}

}  // namespace

ImageRun run_image(std::span<const std::byte> bytes, std::uint64_t max_extent) {
  ImageRun run;
  // Blocks of exactly the size that the loader has, so that a read past the end is one byte past a block.
  const auto block_of = [&](std::uint64_t offset, std::uint64_t size) {
    Block block(static_cast<std::byte*>(std::malloc(size)));
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), size, block.get());
    return block;
  };
  std::uint64_t head_size = std::min<std::uint64_t>(bytes.size(), 8);
  const std::uint64_t table_size = slice_table_size({block_of(0, head_size).get(), head_size});
  head_size = std::min<std::uint64_t>(bytes.size(), std::max(head_size, table_size));
  const auto slice = choose_slice(run_path, {block_of(0, head_size).get(), head_size}, bytes.size());
  if (!slice) {
    run.fault = slice.error().text;
    return run;
  }

  const Block file = block_of(slice->offset, slice->size);
  const auto image = std::make_unique<MachImage>();
  std::snprintf(image->path, sizeof image->path, "%s", run_path);
  image->file_data = file.get();
  image->file_size = slice->size;
  if (const auto read = read_commands(*image); !read) {
    run.fault = read.error().text;
    return run;
  }
  run.extent = image->extent();
  if (run.extent > max_extent) return run;

  run.placed = true;
  const Block memory(static_cast<std::byte*>(std::calloc(run.extent, 1)));
  image->base = 0x700000000000;
  image->slide = static_cast<std::int64_t>(image->base - image->vm_min);
  for (int i = 0; i < image->segment_count; ++i) {
    const MachSegment& segment = image->segments[i];
    if (!segment.mapped() || segment.filesize == 0) continue;
    std::memcpy(memory.get() + (segment.vmaddr - image->vm_min), image->file_data + segment.fileoff, segment.filesize);
  }
  for (int i = 0; i < image->section_count; ++i) {
    MachSection& section = image->sections[i];
    section.addr += static_cast<std::uint64_t>(image->slide);
    if (section.size != 0 && !(image->contains(section.addr) && image->contains(section.addr + section.size - 1))) {
      std::abort();
    }
  }

  MachImage* const images[] = {&other_image(), image.get()};
  const SymbolSources sources{images, fake_lookup, fake_missing};
  const std::span extent(memory.get(), run.extent);
  look_ups = 0;
  const auto add = [&](const Result<std::uint64_t>& patched) {
    if (patched) run.patched += *patched;
    if (!patched && run.fault.empty()) run.fault = patched.error().text.empty() ? "(no text)" : patched.error().text;
    return patched.has_value();
  };
  if (add(macho_rebase(*image, extent)) && add(macho_bind(*image, extent, BindStream::binds, sources))) {
    add(macho_bind(*image, extent, BindStream::lazy_binds, sources));
  }
  run.looked_up = look_ups;
  ask(*image);
  return run;
}

}  // namespace vlm::test
