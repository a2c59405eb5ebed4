// The files that a tool is given and makes. Paths are UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

#include "macho/image.h"
#include "shared/mapped_file.h"
#include "support/result.h"

namespace vlm::tools {

inline constexpr const char* image_name = "GameAssembly.dylib";
inline constexpr const char* library_name = "GameAssembly.dll";

/// The image that a path means: the file itself, or of a folder the one GameAssembly.dylib in it, below the Contents of
/// the application that it is, or of the one application in it. Fails with a sentence that says what is there.
Result<std::string> find_image(const std::string& path);

/// GameAssembly.dll beside this program or one folder up, as the archive has it; empty when there is none.
std::string find_library();

/// A file with these bytes, on the disk when this comes back. Leaves none when it fails.
Result<void> write_through(const std::filesystem::path& path, std::span<const std::byte> bytes);

/// The whole file or none: written beside its place and moved there.
bool write_file(const std::string& path, std::span<const std::byte> bytes);

/// True when both names lead to one file, or would once it is there.
bool is_same_file(const std::string& one, const std::string& other);

/// Chooses the slice of a game image and reads its commands, as the loader does. The record points into `file`; its
/// base is vm_min, so that symbols are found by link-time addresses. Fails with the reason why the file is refused.
Result<void> read_image(const std::string& path, std::span<const std::byte> file, MachImage& image);

/// Fails when the code of an image that was read is for another processor, which the loader would not notice.
Result<void> check_processor(const MachImage& image);

/// A file with an image that can be used, and its record.
struct ImageFile {
  MappedFile file;
  MachImage image = {};
};
Result<std::unique_ptr<ImageFile>> open_image(const std::string& path);

/// "arm64"
std::string cpu_name(std::uint32_t cputype);

/// "0x7447 (_name+0x13)": how messages name a place of such an image. Printable.
std::string describe_place(const MachImage& image, std::uint64_t vmaddr);

}  // namespace vlm::tools
