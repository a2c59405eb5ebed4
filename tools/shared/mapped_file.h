// A file's bytes without a copy of them: only what is looked at is read.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <utility>

#include "support/result.h"

namespace vlm::tools {

/// A view of a whole file, which should not become shorter meanwhile.
class MappedFile {
 public:
  /// Fails, with a reason that follows the file's name, for what is no file of its own or cannot be read.
  ///   path  UTF-8
  static Result<MappedFile> open(const std::string& path);

  MappedFile() = default;
  MappedFile(MappedFile&& other) noexcept : bytes_(std::exchange(other.bytes_, {})) {}
  MappedFile& operator=(MappedFile&& other) noexcept {
    std::swap(bytes_, other.bytes_);
    return *this;
  }
  ~MappedFile();

  std::span<const std::byte> bytes() const { return bytes_; }

 private:
  std::span<const std::byte> bytes_;
};

}  // namespace vlm::tools
