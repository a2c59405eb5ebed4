#include "input/pad_summary.h"

#include <windows.h>

#include <atomic>
#include <cmath>

#include "input/connections.h"
#include "input/devices.h"
#include "vlm.h"

namespace vlm {
namespace {

constexpr ULONGLONG refresh_interval_ms = 500;

// A bit for each controller.
constinit std::atomic<std::uint32_t> north_held{0}, south_held{0}, right_shoulder_held{0};
constinit std::atomic<float> laterals[controller_count] = {};
constinit std::atomic<ULONGLONG> next_refresh{0};  // tick count

/// A controller has one bit of its own; most polls find it as it has to be and need not lock the bus.
void set_bit(std::atomic<std::uint32_t>& mask, unsigned index, bool held) {
  const std::uint32_t bit = 1u << index;
  if (((mask.load(std::memory_order_relaxed) & bit) != 0) == held) return;
  if (held) {
    mask |= bit;
  } else {
    mask &= ~bit;
  }
}

}  // namespace

void update_pad_summary(unsigned index, const ControllerState& state) {
  set_bit(north_held, index, state.buttonY > 0.5f);
  set_bit(south_held, index, state.buttonA > 0.5f);
  set_bit(right_shoulder_held, index, state.rightShoulder > 0.5f);
  const bool dpad_leads = std::fabs(state.leftThumbstickX) < std::fabs(state.dpadX);
  laterals[index].store(dpad_leads ? state.dpadX : state.leftThumbstickX, std::memory_order_relaxed);
}

}  // namespace vlm

extern "C" VLM_API void pc_pad_refresh(void) {
  const ULONGLONG now = GetTickCount64();
  if (now < vlm::next_refresh) return;
  vlm::next_refresh = now + vlm::refresh_interval_ms;
  vlm::refresh_connections(true);
}

extern "C" VLM_API int32_t pc_pad_north_held(void) { return vlm::north_held != 0; }
extern "C" VLM_API int32_t pc_pad_south_held(void) { return vlm::south_held != 0; }
extern "C" VLM_API int32_t pc_pad_right_shoulder_held(void) { return vlm::right_shoulder_held != 0; }

extern "C" VLM_API float pc_pad_lateral(void) {
  float widest = 0;
  for (const auto& lateral : vlm::laterals) {
    const float value = lateral.load(std::memory_order_relaxed);
    if (std::fabs(value) > std::fabs(widest)) widest = value;
  }
  return widest;
}
