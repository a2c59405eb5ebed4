// Any bytes as an export trie: the first says how long the name is that is looked up, then come the name and the trie.
#include <cstdlib>
#include <vector>

#include "macho/queries.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size - 1 < data[0]) return 0;
  const std::string_view name(reinterpret_cast<const char*>(data) + 1, data[0]);
  const std::vector<std::byte> trie(reinterpret_cast<const std::byte*>(data) + 1 + data[0],
                                    reinterpret_cast<const std::byte*>(data) + size);
  vlm::MachImage image{};
  image.file_data = trie.data();
  image.file_size = trie.size();
  image.export_size = static_cast<std::uint32_t>(trie.size());
  std::uint64_t bytes_read = 0;
  vlm::macho_find_export(image, name, &bytes_read);
  if (bytes_read > 2 * trie.size()) std::abort();  // the look-up went in circles
  return 0;
}
