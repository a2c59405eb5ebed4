#include "fuzz/image_run.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "macho/commands.h"
#include "macho/fixups.h"
#include "macho/queries.h"
#include "support/fake_image.h"
#include "support/good_image.h"

namespace vlm::test {
namespace {

std::uint64_t look_ups;

const void* fake_lookup(const char* library, const char* name) {
  ++look_ups;
  return std::strlen(library) + std::strlen(name) > 20 ? nullptr : name;
}

/// Everything that is asked of a loaded image; the sanitizers watch.
void ask(const MachImage& image) {
  for (const char* name : {"", "_game_start", "_g", "_stub", "_elsewhere", "_constant", "_aaaaaaaaaaaaaaaaaaaaaa"}) {
    macho_find_export(image, name);
    macho_symbol_by_name(image, name);
  }
  for (const std::uint64_t address : {image.base - 1, image.base, image.base + image.extent() / 2,
                                      image.base + image.extent() - 1, image.base + image.extent()}) {
    const char* name = macho_symbol_for_address(image, address, nullptr);
    if (name != nullptr && std::strlen(name) > image.strsize) std::abort();
  }
  macho_find_section(image, "__TEXT", "__text");
}

}  // namespace

ImageRun run_image(std::span<const std::byte> bytes, std::uint64_t max_extent) {
  ImageRun run;
  // Copies of exactly the size that the loader has, so that a read past the end is one byte past a block.
  const auto copy_of = [&](std::uint64_t offset, std::uint64_t size) {
    const auto part = bytes.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(size));
    return Bytes(part.begin(), part.end());
  };
  std::uint64_t head_size = std::min<std::uint64_t>(bytes.size(), 8);
  head_size = std::clamp<std::uint64_t>(macho_slice_table_size(copy_of(0, head_size)), head_size, bytes.size());
  const auto slice = macho_choose_slice(run_path, copy_of(0, head_size), bytes.size());
  if (!slice) return {.fault = slice.error().text};

  const FakeImage fake(copy_of(slice->offset, slice->size), run_path, max_extent);
  MachImage& image = *fake.image;
  run.fault = fake.fault;
  if (run.fault.empty()) run.extent = image.extent();
  run.placed = !fake.memory.empty();
  if (!run.placed) return run;
  for (const MachSection& section : std::span(image.sections, static_cast<std::size_t>(image.section_count))) {
    if (section.size != 0 && !image.contains(section.addr)) std::abort();
    if (section.size != 0 && !image.contains(section.addr + section.size - 1)) std::abort();
  }

  static const FakeImage other(good_draft(), "/games/run/libOther.dylib");  // a sound image to import from
  MachImage* const images[] = {other.image.get(), &image};
  const SymbolSources sources{images, fake_lookup, [](const char*, const char* name) -> const void* { return name; }};
  look_ups = 0;
  const auto add = [&](const Result<std::uint64_t>& patched) {
    if (patched) run.patched += *patched;
    if (!patched && run.fault.empty()) run.fault = patched.error().text.empty() ? "(no text)" : patched.error().text;
    return patched.has_value();
  };
  (void)(add(macho_rebase(image, fake.memory)) && add(macho_bind(image, fake.memory, BindStream::binds, sources)) &&
         add(macho_bind(image, fake.memory, BindStream::lazy_binds, sources)));
  run.looked_up = look_ups;
  ask(image);
  return run;
}

}  // namespace vlm::test
