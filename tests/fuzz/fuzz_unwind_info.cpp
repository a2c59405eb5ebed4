// Any bytes as compact unwind information, after the offset of the address that is looked up. What an encoding says is
// decoded as well, with the same bytes as the function's code.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "cxx/compact_unwind.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::uint32_t target;
  if (size < sizeof target) return 0;
  std::memcpy(&target, data, sizeof target);
  const std::vector<std::byte> bytes(reinterpret_cast<const std::byte*>(data) + sizeof target,
                                     reinterpret_cast<const std::byte*>(data) + size);
  const auto section = vlm::UnwindSection::open(bytes);
  if (!section) return 0;
  const auto found = section->find(target);
  if (!found || !*found) return 0;
  const auto layout = vlm::decode_compact((*found)->encoding, bytes);
  if (!layout) return 0;
  if (layout->cfa_offset < 8) std::abort();
  for (const auto where : {vlm::in_rax, vlm::in_rdx, vlm::in_rsp, vlm::in_rip}) {
    if (layout->below_cfa[where] != 0) std::abort();
  }
  for (const unsigned below : layout->below_cfa) {
    if (below != 0 && (below < 16 || below > layout->deepest)) std::abort();
  }
  return 0;
}
