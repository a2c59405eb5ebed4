// Any bytes as the cloud store's file: what is read of them has to be read again from the file that is written of it.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <set>

#include "support/cloud_entries.h"

namespace {

bool is_same_value(const vlm::CloudEntry& before, const vlm::CloudEntry& after) {
  if (const auto* const text = std::get_if<std::string>(&before.value)) {
    std::string_view expected = *text;
    if (expected.ends_with('\r')) expected.remove_suffix(1);  // counts as a part of the line's end
    const auto* const read = std::get_if<std::string>(&after.value);
    return read != nullptr && *read == expected;
  }
  const auto* const number = std::get_if<double>(&before.value);
  if (number == nullptr || !std::isnan(*number)) return before.value == after.value;
  return std::holds_alternative<double>(after.value) && std::isnan(std::get<double>(after.value));
}

}  // namespace

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
