// Any bytes as the opcode streams of a sound image: the first two say where the rebase stream ends and which kind of
// bind stream follows.
#include "fuzz/image_run.h"
#include "support/good_image.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2 || size > 4096) return 0;
  const auto streams = std::as_bytes(std::span(data + 2, size - 2));
  const std::size_t rebase_size = std::min<std::size_t>(data[0], streams.size());
  vlm::test::ImageDraft draft = vlm::test::good_draft();
  draft.rebase.assign(streams.begin(), streams.begin() + static_cast<std::ptrdiff_t>(rebase_size));
  vlm::test::Bytes& bind = data[1] & 1 ? draft.lazy_bind : draft.bind;
  bind.assign(streams.begin() + static_cast<std::ptrdiff_t>(rebase_size), streams.end());
  vlm::test::run_image(vlm::test::build_image(draft), 0x1000000);
  return 0;
}
