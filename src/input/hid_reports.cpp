#include "input/hid_reports.h"

namespace vlm {
namespace {

/// Where a report holds each field, in bytes from the left stick's X.
struct FieldOffsets {
  std::uint8_t left_trigger, right_trigger, buttons;
};
constexpr FieldOffsets dualshock4_fields = {7, 8, 4};
constexpr FieldOffsets dualsense_fields = {4, 5, 7};  // a counter stands between triggers and buttons

struct ReportLayout {
  PadKind kind;
  std::uint8_t report_id;
  std::size_t min_size, max_size;  // in bytes, report ID included
  std::uint8_t start;              // of the left stick's X
  const FieldOffsets& fields;
};

/// The first that fits counts. A DualSense sends its own layout by cable and, once it was asked for a feature report,
/// by radio; before that it sends short reports that look like a DualShock 4's, which Windows fills up to the length of
/// the longest one, 78 bytes.
// clang-format off
constexpr ReportLayout layouts[] = {
    {PadKind::dualshock4, 0x01, 10, max_report_size, 1, dualshock4_fields},
    {PadKind::dualshock4, 0x11, 12, max_report_size, 3, dualshock4_fields},
    {PadKind::dualsense,  0x01, 64, 64,              1, dualsense_fields},
    {PadKind::dualsense,  0x31, 64, max_report_size, 2, dualsense_fields},
    {PadKind::dualsense,  0x01, 10, max_report_size, 1, dualshock4_fields},
};
// clang-format on

consteval bool layouts_fit() {
  for (const ReportLayout& layout : layouts) {
    const FieldOffsets& fields = layout.fields;
    for (const std::size_t last : {3uz, 0uz + fields.left_trigger, 0uz + fields.right_trigger, fields.buttons + 2uz}) {
      if (layout.start + last >= layout.min_size) return false;
    }
  }
  return true;
}
static_assert(layouts_fit(), "a report of the smallest size holds every field");

constexpr std::uint16_t sony = 0x054C;

constexpr struct {
  std::uint16_t product_id;
  PadKind kind;
} products[] = {
    {0x05C4, PadKind::dualshock4}, {0x09CC, PadKind::dualshock4}, {0x0BA0, PadKind::dualshock4},
    {0x0CE6, PadKind::dualsense},  {0x0DF2, PadKind::dualsense},
};

}  // namespace

PadKind pad_kind(std::uint16_t vendor_id, std::uint16_t product_id) {
  if (vendor_id != sony) return PadKind::none;
  for (const auto& product : products) {
    if (product.product_id == product_id) return product.kind;
  }
  return PadKind::none;
}

std::optional<PadInput> read_hid_report(PadKind kind, std::span<const std::byte> report) {
  for (const ReportLayout& layout : layouts) {
    if (layout.kind != kind || report.size() < layout.min_size || report.size() > layout.max_size) continue;
    if (static_cast<std::uint8_t>(report[0]) != layout.report_id) continue;
    const auto at = [&](unsigned offset) { return static_cast<std::uint8_t>(report[layout.start + offset]); };
    const FieldOffsets& fields = layout.fields;
    return PadInput{.leftX = at(0),
                    .leftY = at(1),
                    .rightX = at(2),
                    .rightY = at(3),
                    .leftTrigger = at(fields.left_trigger),
                    .rightTrigger = at(fields.right_trigger),
                    .buttons0 = at(fields.buttons),
                    .buttons1 = at(fields.buttons + 1u),
                    .buttons2 = at(fields.buttons + 2u)};
  }
  return std::nullopt;
}

}  // namespace vlm
