// Any bytes as an image file.
#include "fuzz/image_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vlm::test::run_image(std::as_bytes(std::span(data, size)), 0x1000000);
  return 0;
}
