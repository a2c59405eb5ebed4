// A kind of controller and any bytes as its report; the sanitizers judge the reads. What is read must become a state
// whose every input is in its range.
#include <cmath>
#include <cstdlib>
#include <vector>

#include "input/pad_mapping.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  // A copy of its own, so that a read past the end is seen.
  const std::vector<std::uint8_t> report(data + 1, data + size);
  const auto input = vlm::read_hid_report(vlm::PadKind{data[0] % 3u}, std::as_bytes(std::span(report)));
  if (!input) return 0;
  vlm::ControllerState state{};
  vlm::map_sony_pad(*input, state);
  for (const float* value = &state.buttonHome; value <= &state.touchpadButton; ++value) {
    if (!(std::fabs(*value) <= 1.0f)) std::abort();
  }
  return 0;
}
