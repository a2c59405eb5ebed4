// The files that a tool is given and makes. Paths are UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "macho/image.h"

namespace vlm::tools {

/// A file's bytes, or nothing when it cannot be read.
std::optional<std::vector<std::byte>> read_file(const char* path);

/// The whole file or none: written beside its place and moved there.
bool write_file(const char* path, std::span<const std::byte> bytes);

/// Chooses the slice of a game image and reads its commands, as the loader does. The record points into `file`; its
/// base is vm_min, so that symbols are found by link-time addresses. Returns why the file is refused, or nothing.
std::optional<std::string> read_image(const char* path, std::span<const std::byte> file, MachImage& image);

/// "0x7447 (_name+0x13)": how messages name a place of such an image.
std::string describe_place(const MachImage& image, std::uint64_t vmaddr);

}  // namespace vlm::tools
