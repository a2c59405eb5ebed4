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
  if (!section && section.error().text.empty()) std::abort();
  if (!section) return 0;
  const auto found = section->find(target);
  if (!found && found.error().text.empty()) std::abort();
  if (!found || !*found) return 0;
  const auto layout = vlm::decode_compact((*found)->encoding, bytes);
  if (!layout) return 0;
  if (layout->saved_count > 6 || layout->cfa_offset < 8) std::abort();
  for (unsigned i = 0; i < layout->saved_count; ++i) {
    const auto& saved = layout->saved[i];
    if (saved.where == vlm::in_rip || saved.where == vlm::in_rsp || saved.below_cfa < 16) std::abort();
  }
  return 0;
}
