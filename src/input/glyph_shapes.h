// The shapes of button glyphs, drawn from signed distance functions: how far a point lies from the edge of a shape, in
// pixels, negative inside. A point within half a pixel of an edge is covered in part, which makes edges smooth.
//
// A glyph is a base with an icon and a label cut out of it, or an icon alone.
#pragma once

#include <array>
#include <cstdint>

#include "input/png_writer.h"

namespace vlm {

/// Width and height of a glyph in pixels.
inline constexpr unsigned glyph_size = 96;

/// One value per pixel, row by row from the top left: 0 nothing, 255 all of it.
using GlyphMask = std::array<std::uint8_t, glyph_size * glyph_size>;
using GlyphPixels = std::array<Rgba, glyph_size * glyph_size>;

enum class GlyphBase : std::uint8_t { disc, bar, none };
enum class GlyphIcon : std::uint8_t { none, cross, ring, square, triangle, three_bars, dpad };
enum class DpadArm : std::uint8_t { left, right, up, down, none };

struct GlyphShape {
  GlyphBase base;
  GlyphIcon icon;
  DpadArm selected_arm;  ///< filled, the others outlined; with none all four are filled
};

/// White on a transparent ground.
///   label  what its letters cover
GlyphPixels draw_glyph(const GlyphShape& shape, const GlyphMask& label);

}  // namespace vlm
