// Pictures of controller buttons for the game's prompts: 28 in each of two styles, drawn here.
#pragma once

#include <cstdint>

namespace vlm {

inline constexpr std::uint32_t glyph_count = 28;

/// The PNG file of a glyph, drawn on first request; it lives until the process ends. Null, with length 0, for a number
/// without a glyph, and when it cannot be drawn now.
///   sony_style  as on Sony's controllers, else as on Xbox's
///   number      below glyph_count
///   length      in bytes
const void* glyph_png(bool sony_style, std::uint32_t number, std::uint32_t* length);

}  // namespace vlm
