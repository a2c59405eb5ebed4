// Any bytes as the cloud store's file: what is read of them has to be read again from the file that is written of it.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <set>

#include "support/cloud_entries.h"

/// A carriage return at a text's end counts as a part of the line's end; a NaN is equal to a NaN.
static bool is_same_value(vlm::CloudEntry before, const vlm::CloudEntry& after) {
  if (auto* const text = std::get_if<std::string>(&before.value); text && text->ends_with('\r')) text->pop_back();
  const auto* const number = std::get_if<double>(&before.value);
  if (number != nullptr && std::isnan(*number)) return std::isnan(std::get<double>(after.value));
  return before.value == after.value;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto bytes = std::make_unique<char[]>(size);  // no byte longer, and no NUL behind it: a read too far shows
  std::copy_n(data, size, bytes.get());
  const auto entries = vlm::read_cloud_file({bytes.get(), size}).entries;
  std::set<std::string_view> keys;
  for (const vlm::CloudEntry& entry : entries) {
    if (entry.key.contains('\0') || !keys.insert(entry.key).second) std::abort();
  }
  const auto [again, whole, number, apart, damaged] = vlm::read_cloud_file(vlm::test::file_of(entries));
  if (again.size() != entries.size() || !whole || damaged) std::abort();
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (again[i].key != entries[i].key || !is_same_value(entries[i], again[i])) std::abort();
  }
  return 0;
}
