// The letters of button glyphs, drawn by Windows' own text renderer.
#pragma once

#include "input/glyph_shapes.h"

namespace vlm {

/// A text in a heavy sans-serif face, in the middle of a glyph. False, and logged, when Windows cannot draw it now.
///   height  of a line, in pixels
bool draw_label(const char* text, int height, GlyphMask& mask);

}  // namespace vlm
