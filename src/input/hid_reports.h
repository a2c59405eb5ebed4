// Input reports of Sony's controllers: which bytes of which report say what. What a device sends is foreign input; a
// report that is too short for its layout, or of an unknown kind, is not read at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vlm {

enum class PadKind : std::uint32_t { none = 0, dualshock4 = 1, dualsense = 2 };

/// none for whatever is no controller known here.
PadKind pad_kind(std::uint16_t vendor_id, std::uint16_t product_id);

/// The longest report that is read, in bytes.
inline constexpr std::size_t max_report_size = 600;

/// What a report says, in the device's own terms.
struct PadInput {
  std::uint8_t leftX, leftY, rightX, rightY;  // 0 to 255, about 128 at rest, Y growing downward
  std::uint8_t leftTrigger, rightTrigger;     // 0 to 255
  std::uint8_t buttons0, buttons1, buttons2;

  // buttons0; its low four bits are the hat: 0 north, then clockwise to 7 north-west, 8 and above released
  static constexpr std::uint8_t square = 0x10, cross = 0x20, circle = 0x40, triangle = 0x80;
  // buttons1; share is called create on a DualSense
  static constexpr std::uint8_t l1 = 0x01, r1 = 0x02, share = 0x10, options = 0x20, l3 = 0x40, r3 = 0x80;
  // buttons2
  static constexpr std::uint8_t ps = 0x01, touchpad = 0x02;

  bool operator==(const PadInput&) const = default;
};

/// Reads one input report as the device sent it, its ID in the first byte. Nothing when it is none with input.
std::optional<PadInput> read_hid_report(PadKind kind, std::span<const std::byte> report);

}  // namespace vlm
