// What the game's controller plug-in exchanges with managed code, by value.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlm {

/// A controller as the game lists it. Texts are NUL-terminated UTF-8.
struct ControllerInfo {
  const char* identifier;
  const char* productCategory;
  const char* vendorName;
  std::uint64_t flags;
};
static_assert(sizeof(ControllerInfo) == 32);

struct ControllerList {
  ControllerInfo* controllers;  // the receiver's, with all texts
  std::int32_t count;
};
static_assert(sizeof(ControllerList) == 16, "comes back in two registers");

/// One look at a controller. Buttons are 0 or 1, triggers 0 to 1, axes -1 to 1 with right and up positive.
struct ControllerState {
  float buttonHome;
  float buttonMenu;
  float buttonOptions;
  float buttonA;  // south
  float buttonB;  // east
  float buttonY;  // north
  float buttonX;  // west
  float rightShoulder;
  float rightTrigger;
  float leftShoulder;
  float leftTrigger;
  float dpadX;
  float dpadY;
  float leftThumbstickX;
  float leftThumbstickY;
  float leftThumbstickButton;
  float rightThumbstickX;
  float rightThumbstickY;
  float rightThumbstickButton;
  float touchpadButton;
  std::byte unused[16];
  float one = 1.0f;      // the game expects these two to stay as they are
  std::int32_t two = 2;  //
};
static_assert(offsetof(ControllerState, dpadX) == 44 && offsetof(ControllerState, touchpadButton) == 76);
static_assert(offsetof(ControllerState, one) == 96 && sizeof(ControllerState) == 104);

/// A picture of a button; all zero when there is none.
struct ControllerGlyph {
  std::int32_t width;   // in pixels
  std::int32_t height;  //
  const void* data;     // a PNG file, which stays the library's
  std::uint32_t length;
  std::uint32_t unused;
};
static_assert(sizeof(ControllerGlyph) == 24);

}  // namespace vlm
