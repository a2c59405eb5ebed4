// Any bytes as the body of a patch list over a small image; the first byte chooses the mode. The sanitizers judge the
// reads and writes; memory that no entry names must come out as it went in.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tls/patch_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const bool expansion = data[0] & 1;
  std::vector<std::byte> blob(sizeof vlm::gs_patch_magic + size - 1);
  std::memcpy(blob.data(), vlm::gs_patch_magic, sizeof vlm::gs_patch_magic);
  std::memcpy(blob.data() + sizeof vlm::gs_patch_magic, data + 1, size - 1);

  const auto space = vlm::measure_patch_list(blob, expansion, "list");
  if (!space) return 0;
  // One allocation, so that a jump reaches; its ends are the sanitizer's.
  constexpr std::size_t image_size = 256;
  std::vector<std::byte> memory(image_size + *space);
  const std::span<std::byte> image = std::span(memory).first(image_size);
  std::vector<bool> may_change(image_size);
  vlm::PatchListReader reader(blob);
  for (std::uint32_t i = 0; i < reader.count(); ++i) {
    const auto entry = reader.next();
    if (!entry) std::abort();
    for (std::size_t i = 0; i < entry->expected.size() && entry->site + i < image_size; ++i) {
      may_change[entry->site + i] = true;
    }
  }
  const std::uint64_t offset = 0x1238;
  const auto patched =
      vlm::apply_patch_list(blob, {image, std::span(memory).subspan(image_size), &offset, expansion}, "list");
  if (patched ? *patched != reader.count() : patched.error().text.empty()) std::abort();
  for (std::size_t i = 0; i < image_size; ++i) {
    if (image[i] != std::byte{0} && !may_change[i]) std::abort();
  }
  return 0;
}
