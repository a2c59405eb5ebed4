// A built image, read and placed in memory of the test, without the loader.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "macho/commands.h"
#include "support/macho_builder.h"

namespace vlm::test {

struct FakeImage {
  static constexpr std::uint64_t base = 0x700000000000;  // what the image takes for its address

  Bytes file;
  std::unique_ptr<MachImage> image = std::make_unique<MachImage>();
  std::unique_ptr<void, decltype(&std::free)> block{nullptr, &std::free};
  std::span<std::byte> memory;  // the block; none when the image was refused or is larger than `max_extent`
  std::string fault;            // empty: read

  explicit FakeImage(Bytes bytes, const char* path = "/games/libFake.dylib",
                     std::uint64_t max_extent = std::uint64_t{1} << 32)
      : file(std::move(bytes)) {
    std::snprintf(image->path, sizeof image->path, "%s", path);
    image->file_data = file.data();
    image->file_size = file.size();
    if (const auto read = macho_read_commands(*image); !read) fault = read.error().text;
    if (!fault.empty() || image->extent() > max_extent) return;
    block.reset(std::calloc(image->extent(), 1));
    memory = {static_cast<std::byte*>(block.get()), static_cast<std::size_t>(image->extent())};
    image->base = base;
    image->slide = static_cast<std::int64_t>(base - image->vm_min);
    for (int i = 0; i < image->segment_count; ++i) {
      const MachSegment& segment = image->segments[i];
      if (!segment.mapped() || segment.filesize == 0) continue;
      std::memcpy(&memory[segment.vmaddr - image->vm_min], image->file_data + segment.fileoff, segment.filesize);
    }
    for (int i = 0; i < image->section_count; ++i) image->sections[i].addr += base - image->vm_min;
  }
  explicit FakeImage(const ImageDraft& draft, const char* path = "/games/libFake.dylib")
      : FakeImage(build_image(draft), path) {}

  std::uint64_t pointer_at(std::uint64_t offset) const {
    std::uint64_t value;
    std::memcpy(&value, &memory[offset], sizeof value);
    return value;
  }
};

}  // namespace vlm::test
