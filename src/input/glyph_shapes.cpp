#include "input/glyph_shapes.h"

#include <algorithm>
#include <cmath>

namespace vlm {
namespace {

/// In pixels, x to the right, y downward.
struct Point {
  float x, y;
};
constexpr Point operator-(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }
float length(Point v) { return std::sqrt(v.x * v.x + v.y * v.y); }

constexpr Point centre = {48, 48};

// ---- Distances ------------------------------------------------------------------------------------------------------

float to_circle(Point p, float radius) { return length(p - centre) - radius; }

struct Box {
  Point middle, half_size;
  float corner_radius;
};
float to_box(Point p, const Box& box) {
  const Point from_middle = p - box.middle;
  const Point beyond = {std::abs(from_middle.x) - box.half_size.x + box.corner_radius,
                        std::abs(from_middle.y) - box.half_size.y + box.corner_radius};
  const float outside = length({std::max(beyond.x, 0.0f), std::max(beyond.y, 0.0f)});
  const float inside = std::min(std::max(beyond.x, beyond.y), 0.0f);
  return outside + inside - box.corner_radius;
}

struct Segment {
  Point from, to;
};
float to_segment(Point p, const Segment& segment) {
  const Point along = segment.to - segment.from, at = p - segment.from;
  const float part = (at.x * along.x + at.y * along.y) / (along.x * along.x + along.y * along.y);
  const float nearest = std::clamp(part, 0.0f, 1.0f);
  return length({at.x - nearest * along.x, at.y - nearest * along.y});
}

/// The nearest of some strokes with round ends.
template <std::size_t N>
float to_strokes(Point p, const Segment (&segments)[N], float half_width) {
  float nearest = to_segment(p, segments[0]);
  for (std::size_t i = 1; i < N; ++i) nearest = std::min(nearest, to_segment(p, segments[i]));
  return nearest - half_width;
}

/// The edge of a shape, drawn as a stroke.
float to_edge(float distance, float half_width) { return std::abs(distance) - half_width; }

float coverage(float distance) { return std::clamp(0.5f - distance, 0.0f, 1.0f); }

// ---- Shapes ---------------------------------------------------------------------------------------------------------

constexpr float stroke = 4.5f;  // half the width of the icons' strokes
constexpr float bar_stroke = 3.5f;
constexpr float outline = 1.6f;

constexpr float disc_radius = 45;
constexpr Box bar = {centre, {45, 30}, 16};

constexpr Segment cross[] = {{{31, 31}, {65, 65}}, {{31, 65}, {65, 31}}};
constexpr float ring_radius = 19;
constexpr Box square = {centre, {17, 17}, 2};
constexpr Segment triangle[] = {{{48, 28}, {68, 63}}, {{68, 63}, {28, 63}}, {{28, 63}, {48, 28}}};
constexpr Segment three_bars[] = {{{32, 36}, {64, 36}}, {{32, 48}, {64, 48}}, {{32, 60}, {64, 60}}};
constexpr Box dpad_arms[] = {  // in the order of DpadArm
    {{29, 48}, {11, 10}, 3},
    {{67, 48}, {11, 10}, 3},
    {{48, 29}, {10, 11}, 3},
    {{48, 67}, {10, 11}, 3}};

float base_coverage(GlyphBase base, Point p) {
  switch (base) {
    case GlyphBase::disc: return coverage(to_circle(p, disc_radius));
    case GlyphBase::bar: return coverage(to_box(p, bar));
    case GlyphBase::none: return 0;
  }
}

float dpad_coverage(DpadArm selected, Point p) {
  float most = 0;
  for (std::size_t arm = 0; arm < std::size(dpad_arms); ++arm) {
    const float distance = to_box(p, dpad_arms[arm]);
    const bool filled = selected == DpadArm::none || selected == static_cast<DpadArm>(arm);
    most = std::max(most, coverage(filled ? distance : to_edge(distance, outline)));
  }
  return most;
}

float icon_coverage(const GlyphShape& shape, Point p) {
  switch (shape.icon) {
    case GlyphIcon::none: return 0;
    case GlyphIcon::cross: return coverage(to_strokes(p, cross, stroke));
    case GlyphIcon::ring: return coverage(to_edge(to_circle(p, ring_radius), stroke));
    case GlyphIcon::square: return coverage(to_edge(to_box(p, square), stroke));
    case GlyphIcon::triangle: return coverage(to_strokes(p, triangle, stroke));
    case GlyphIcon::three_bars: return coverage(to_strokes(p, three_bars, bar_stroke));
    case GlyphIcon::dpad: return dpad_coverage(shape.selected_arm, p);
  }
}

float sample(const GlyphShape& shape, Point p) {
  const float icon = icon_coverage(shape, p);
  return shape.base == GlyphBase::none ? icon : base_coverage(shape.base, p) * (1 - icon);
}

}  // namespace

GlyphPixels draw_glyph(const GlyphShape& shape, const GlyphMask& label) {
  GlyphPixels pixels;
  std::size_t i = 0;
  for (unsigned row = 0; row < glyph_size; ++row) {
    for (unsigned column = 0; column < glyph_size; ++column, ++i) {
      const float x = static_cast<float>(column), y = static_cast<float>(row);
      float value = (sample(shape, {x + 0.25f, y + 0.25f}) + sample(shape, {x + 0.75f, y + 0.25f}) +
                     sample(shape, {x + 0.25f, y + 0.75f}) + sample(shape, {x + 0.75f, y + 0.75f})) /
                    4;
      const float letters = static_cast<float>(label[i]) / 255;
      value = shape.base == GlyphBase::none ? std::max(value, letters) : value * (1 - letters);
      pixels[i] = {255, 255, 255, static_cast<std::uint8_t>(std::lround(value * 255))};  // each factor is 0 to 1
    }
  }
  return pixels;
}

}  // namespace vlm
