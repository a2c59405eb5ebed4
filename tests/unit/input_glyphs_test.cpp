// The glyphs' cache. Their pictures are the business of a native program, which reads them with libpng.
#include <doctest/doctest.h>

#include <set>

#include "input/glyphs.h"

using vlm::glyph_png;

TEST_CASE("every style and number has a glyph of its own, the same at every request") {
  std::set<const void*> files;
  for (const bool sony_style : {false, true}) {
    for (std::uint32_t number = 0; number < 28; ++number) {
      std::uint32_t length = 1, length_again = 2;
      const void* const png = glyph_png(sony_style, number, &length);
      CHECK(glyph_png(sony_style, number, &length_again) == png);
      CHECK(length == 37028);
      CHECK(length_again == 37028);
      CHECK(files.insert(png).second);
    }
    for (const std::uint32_t number : {28u, 56u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
      std::uint32_t length = 1;
      CHECK(glyph_png(sony_style, number, &length) == nullptr);
      CHECK(length == 0);
    }
  }
  CHECK(files.count(nullptr) == 0);
}
