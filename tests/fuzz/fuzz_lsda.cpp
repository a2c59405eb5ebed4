// Any bytes as the memory of an image, after where in it the exception table, the function and the instruction lie.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "cxx/lsda.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::uint16_t places[3];
  if (size <= sizeof places) return 0;
  std::memcpy(places, data, sizeof places);
  const std::vector<std::uint8_t> memory(data + sizeof places, data + size);
  vlm::MachImage image{};
  image.base = reinterpret_cast<std::uint64_t>(memory.data());
  image.vm_end = memory.size();
  const auto pad = vlm::find_landing_pad(image, image.base + places[0], image.base + places[1], image.base + places[2]);
  if (!pad || !*pad) return 0;
  if (!image.contains((*pad)->address) || (!(*pad)->has_cleanup && (*pad)->clauses.empty())) std::abort();
  return 0;
}
