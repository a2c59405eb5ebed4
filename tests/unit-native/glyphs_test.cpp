// Reads the library's button glyphs with libpng and compares every pixel with the geometry, told here once more and in
// another way. Of letters, which are whatever this machine's fonts are, it asks that they are cut out whole, in the
// middle and of the right size.
//
//   glyphs_test FOLDER     sony-0.png to xbox-27.png
#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "input/glyph_shapes.h"

namespace {

using vlm::DpadArm, vlm::GlyphBase, vlm::GlyphIcon;
using enum GlyphIcon;

int faults = 0;
#define CHECK(condition, ...)                                     \
  do {                                                            \
    if (!(condition)) {                                           \
      ++faults;                                                   \
      std::printf("%s:%d: %s: ", __FILE__, __LINE__, #condition); \
      std::printf(__VA_ARGS__);                                   \
      std::puts("");                                              \
    }                                                             \
  } while (false)

// ---- Geometry -------------------------------------------------------------------------------------------------------

struct Point {
  double x, y;
};

double to_segment(Point p, Point a, Point b) {
  const double size = std::hypot(b.x - a.x, b.y - a.y);
  const double along = ((p.x - a.x) * (b.x - a.x) + (p.y - a.y) * (b.y - a.y)) / size;
  if (along <= 0) return std::hypot(p.x - a.x, p.y - a.y);
  if (along >= size) return std::hypot(p.x - b.x, p.y - b.y);
  return std::abs((b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x)) / size;
}

/// By the parts of the outline: four sides and four quarters of circles.
double to_rounded_box(Point p, double left, double right, double top, double bottom, double radius) {
  const double l = left + radius, r = right - radius, t = top + radius, b = bottom - radius;
  double nearest = std::min({to_segment(p, {l, top}, {r, top}), to_segment(p, {l, bottom}, {r, bottom}),
                             to_segment(p, {left, t}, {left, b}), to_segment(p, {right, t}, {right, b})});
  bool inside = p.x > left && p.x < right && p.y > top && p.y < bottom;
  if ((p.x < l || p.x > r) && (p.y < t || p.y > b)) {
    const double from_corner = std::hypot(p.x - (p.x < l ? l : r), p.y - (p.y < t ? t : b));
    nearest = std::min(nearest, std::abs(from_corner - radius));
    inside = from_corner < radius;
  }
  return inside ? -nearest : nearest;
}

double covered(double distance) { return std::clamp(0.5 - distance, 0.0, 1.0); }
double stroke(double distance, double half_width) { return covered(std::abs(distance) - half_width); }

double base_at(GlyphBase base, Point p) {
  if (base == GlyphBase::none) return 1;
  return covered(base == GlyphBase::disc ? std::hypot(p.x - 48, p.y - 48) - 45 : to_rounded_box(p, 3, 93, 18, 78, 16));
}

double icon_at(GlyphIcon icon, DpadArm selected, Point p) {
  static constexpr double arms[][4] = {{18, 40, 38, 58}, {56, 78, 38, 58}, {38, 58, 18, 40}, {38, 58, 56, 78}};
  double most = 0;
  switch (icon) {
    case none: break;
    case cross:
      return std::max(stroke(to_segment(p, {31, 31}, {65, 65}), 4.5), stroke(to_segment(p, {31, 65}, {65, 31}), 4.5));
    case ring: return stroke(std::hypot(p.x - 48, p.y - 48) - 19, 4.5);
    case square: return stroke(to_rounded_box(p, 31, 65, 31, 65, 2), 4.5);
    case triangle:
      return std::max({stroke(to_segment(p, {48, 28}, {68, 63}), 4.5), stroke(to_segment(p, {68, 63}, {28, 63}), 4.5),
                       stroke(to_segment(p, {28, 63}, {48, 28}), 4.5)});
    case three_bars:
      for (const double y : {36, 48, 60}) most = std::max(most, stroke(to_segment(p, {32, y}, {64, y}), 3.5));
      break;
    case dpad:
      for (int arm = 0; arm < 4; ++arm) {
        const double distance = to_rounded_box(p, arms[arm][0], arms[arm][1], arms[arm][2], arms[arm][3], 3);
        const bool filled = selected == DpadArm::none || static_cast<int>(selected) == arm;
        most = std::max(most, filled ? covered(distance) : stroke(distance, 1.6));
      }
  }
  return most;
}

/// 0 to 255.
double shape_at(const vlm::GlyphShape& shape, int x, int y) {
  double sum = 0;
  for (int sample = 0; sample < 4; ++sample) {
    const Point p = {x + 0.25 + sample % 2 * 0.5, y + 0.25 + sample / 2 * 0.5};
    const double icon = icon_at(shape.icon, shape.selected_arm, p);
    sum += shape.base == GlyphBase::none ? icon : base_at(shape.base, p) * (1 - icon);
  }
  return sum * 255 / 4;
}

// ---- What each number shows -----------------------------------------------------------------------------------------

struct Glyph {
  vlm::GlyphShape shape;
  std::string label;
  int height = 0;
};

Glyph disc(const char* label, int height) { return {{GlyphBase::disc, none, DpadArm::none}, label, height}; }
Glyph disc(GlyphIcon icon) { return {{GlyphBase::disc, icon, DpadArm::none}, ""}; }
Glyph bar(const char* label, int height) { return {{GlyphBase::bar, none, DpadArm::none}, label, height}; }
Glyph arm(DpadArm which) { return {{GlyphBase::none, dpad, which}, ""}; }
const Glyph menu = {{GlyphBase::bar, three_bars, DpadArm::none}, ""};

const Glyph arms[] = {arm(DpadArm::none), arm(DpadArm::left), arm(DpadArm::right), arm(DpadArm::up),
                      arm(DpadArm::down)};
const Glyph sony_left = disc("L", 56), sony_right = disc("R", 56), touch = bar("TOUCH", 24);
const Glyph xbox_left = disc("LS", 44), xbox_right = disc("RS", 44), view = bar("VIEW", 24);

const Glyph styles[2][28] = {
    {disc("PS", 44), menu,          bar("CREATE", 24),
     disc(cross),    disc(ring),    disc(triangle),
     disc(square),   bar("R1", 40), bar("R2", 40),
     bar("L1", 40),  bar("L2", 40), arms[0],
     arms[0],        sony_left,     sony_left,
     sony_left,      sony_right,    sony_right,
     sony_right,     touch,         touch,
     touch,          touch,         touch,
     arms[1],        arms[2],       arms[3],
     arms[4]},
    {disc("X", 44), menu,          view,          disc("A", 58), disc("B", 58), disc("Y", 58), disc("X", 58),
     bar("RB", 40), bar("RT", 40), bar("LB", 40), bar("LT", 40), arms[0],       arms[0],       xbox_left,
     xbox_left,     xbox_left,     xbox_right,    xbox_right,    xbox_right,    view,          view,
     view,          view,          view,          arms[1],       arms[2],       arms[3],       arms[4]}};

// ---- Checks ---------------------------------------------------------------------------------------------------------

/// Row by row, or nothing when libpng finds a fault.
std::vector<vlm::Rgba> read_png(const std::string& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  const bool opened = png_image_begin_read_from_file(&image, path.c_str()) != 0;
  CHECK(opened && image.format == PNG_FORMAT_RGBA && image.width == 96 && image.height == 96, "%s", path.c_str());
  if (!opened || image.width != 96 || image.height != 96) return {};
  image.format = PNG_FORMAT_RGBA;
  std::vector<vlm::Rgba> pixels(96 * 96);
  const bool read = png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) != 0;
  CHECK(read && image.warning_or_error == 0, "%s: %s", path.c_str(), image.message);
  return read ? pixels : std::vector<vlm::Rgba>{};
}

/// What of the base the letters leave uncovered.
void check_letters(const char* name, const Glyph& glyph, const std::vector<vlm::Rgba>& pixels) {
  int left = 96, right = -1, top = 96, bottom = -1;
  double area = 0, most = 0;
  for (int i = 0; i < 96 * 96; ++i) {
    const int x = i % 96, y = i / 96;
    const double base = shape_at(glyph.shape, x, y), cut = (base - pixels[i].alpha) / 255;
    CHECK(cut > -0.005, "%s: more than the base at %d, %d", name, x, y);
    const bool apart = shape_at(glyph.shape, x - 3, y) > 254 && shape_at(glyph.shape, x + 3, y) > 254;
    CHECK(cut < 0.005 || apart, "%s: letters at the edge, %d, %d", name, x, y);
    area += cut;
    most = std::max(most, cut);
    if (cut < 0.5) continue;
    left = std::min(left, x), right = std::max(right, x + 1), top = std::min(top, y), bottom = std::max(bottom, y + 1);
  }
  const double height = bottom - top, width = right - left;
  CHECK(most > 0.99, "%s: letters are not cut through", name);
  CHECK(height > 0.4 * glyph.height && height < 0.85 * glyph.height, "%s: %g pixels high", name, height);
  CHECK(std::abs(left + right - 96) <= 6 && std::abs(top + bottom - 96) <= 8, "%s: off the centre by %g, %g", name,
        (left + right) / 2.0 - 48, (top + bottom) / 2.0 - 48);
  // A regular face covers no more than 0.3 of the lightest letters' rectangles, a heavy one 0.4.
  CHECK(area > 0.35 * width * height && area < 0.85 * width * height, "%s: no heavy letters, %g", name, area);
  if (glyph.label == "L") {
    const auto is_cut = [&](int x, int y) { return pixels[y * 96 + x].alpha < 128; };
    CHECK(is_cut(left + 2, top + 2) && is_cut(right - 3, bottom - 3) && !is_cut(right - 3, top + 2), "%s: no L", name);
  }
}

void check_files(const std::string& folder) {
  std::map<std::string, std::vector<std::uint8_t>> pictures;  // of letters, by what they show
  for (int style = 0; style < 2; ++style) {
    for (int number = 0; number < 28; ++number) {
      const std::string name = (style == 0 ? "sony-" : "xbox-") + std::to_string(number) + ".png";
      const auto pixels = read_png(folder + "/" + name);
      if (pixels.empty()) continue;
      const Glyph& glyph = styles[style][number];
      std::vector<std::uint8_t> alphas;
      for (int i = 0; i < 96 * 96; ++i) {
        const vlm::Rgba& pixel = pixels[i];
        CHECK(pixel.red == 255 && pixel.green == 255 && pixel.blue == 255, "%s: not white", name.c_str());
        const double expected = shape_at(glyph.shape, i % 96, i / 96);
        CHECK(!glyph.label.empty() || std::abs(pixel.alpha - expected) < 0.51, "%s at %d, %d: %d, expected %g",
              name.c_str(), i % 96, i / 96, pixel.alpha, expected);
        alphas.push_back(pixel.alpha);
      }
      if (glyph.label.empty()) continue;
      check_letters(name.c_str(), glyph, pixels);
      const auto& first = pictures.emplace(glyph.label + std::to_string(glyph.height), alphas).first->second;
      CHECK(first == alphas, "%s: another picture of the same", name.c_str());
    }
  }
  for (const auto& [label, alphas] : pictures) {
    for (const auto& [other_label, other_alphas] : pictures) {
      int different = 0;
      for (int i = 0; i < 96 * 96; ++i) different += std::abs(alphas[i] - other_alphas[i]) > 128;
      CHECK(label == other_label || different > 20, "%s looks like %s", label.c_str(), other_label.c_str());
    }
  }
}

/// A label that covers each pixel in another degree.
void check_labels_are_cut_out() {
  vlm::GlyphMask label;
  for (int i = 0; i < 96 * 96; ++i) label[i] = static_cast<std::uint8_t>(i * 7);
  for (const auto& [shape, no_label, no_height] : {disc(ring), menu, arms[1]}) {
    const vlm::GlyphPixels pixels = vlm::draw_glyph(shape, label);
    for (int i = 0; i < 96 * 96; ++i) {
      const double value = shape_at(shape, i % 96, i / 96);
      const double expected =
          shape.base == GlyphBase::none ? std::max<double>(value, label[i]) : value * (255 - label[i]) / 255;
      CHECK(std::abs(pixels[i].alpha - expected) < 0.51, "icon %d with letters at %d, %d", static_cast<int>(shape.icon),
            i % 96, i / 96);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: glyphs_test FOLDER\n", stderr);
    return 1;
  }
  check_labels_are_cut_out();
  check_files(argv[1]);
  if (faults != 0) std::printf("%d faults\n", faults);
  return faults == 0 ? 0 : 1;
}
