// A cloud file of entries that were read.
#pragma once

#include <string>
#include <vector>

#include "objc/cloud_file.h"

namespace vlm::test {

inline std::string file_of(const std::vector<CloudEntry>& entries, std::uint64_t save_number = 0) {
  CloudFileWriter writer;
  for (const auto& [key, value] : entries) {
    if (const auto* const text = std::get_if<std::string>(&value)) {
      writer.add_text(key, *text);
    } else if (const auto* const integer = std::get_if<std::int64_t>(&value)) {
      writer.add_integer(key, *integer);
    } else {
      writer.add_double(key, std::get<double>(value));
    }
  }
  return writer.finish(save_number);
}

}  // namespace vlm::test
