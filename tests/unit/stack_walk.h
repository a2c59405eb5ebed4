// Walking the stack as a crash report or an exception would, from wherever it is called.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

/// The frames from the caller of walk_stack() outwards: where each function starts (0 when Windows knows none there,
/// which it takes for a leaf), and the registers as they were in that frame.
struct WalkedFrame {
  std::uint64_t function;
  CONTEXT context;
};

/// Stops after 40 frames, or where the walk loses its way (Rip 0 or rsp outside the stack).
[[gnu::noinline]] inline std::vector<WalkedFrame> walk_stack() {
  std::vector<WalkedFrame> frames;
  const auto* teb = reinterpret_cast<const NT_TIB*>(NtCurrentTeb());
  CONTEXT context;
  RtlCaptureContext(&context);
  while (frames.size() < 40 && context.Rip != 0 && context.Rsp >= reinterpret_cast<std::uint64_t>(teb->StackLimit) &&
         context.Rsp < reinterpret_cast<std::uint64_t>(teb->StackBase)) {
    DWORD64 image = 0, frame;
    void* handler_data;
    RUNTIME_FUNCTION* function = RtlLookupFunctionEntry(context.Rip, &image, nullptr);
    frames.push_back({function != nullptr ? image + function->BeginAddress : 0, context});
    if (function != nullptr) {
      RtlVirtualUnwind(UNW_FLAG_NHANDLER, image, context.Rip, function, &context, &handler_data, &frame, nullptr);
    } else {
      context.Rip = *reinterpret_cast<const DWORD64*>(std::exchange(context.Rsp, context.Rsp + 8));
    }
  }
  return frames;
}

/// The frame of the function that starts at `function`, or null when the walk did not come by it.
inline const WalkedFrame* frame_of(const std::vector<WalkedFrame>& frames, const void* function) {
  const auto frame = std::ranges::find(frames, reinterpret_cast<std::uint64_t>(function), &WalkedFrame::function);
  return frame != frames.end() ? &*frame : nullptr;
}
