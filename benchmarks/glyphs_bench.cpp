// Button glyphs: drawing them, against the letters that GDI draws for them in any case; one that was drawn before,
// against the lock that guards it.
#include <windows.h>

#include <vector>

#include "input/glyph_labels.h"
#include "input/glyph_shapes.h"
#include "input/glyphs.h"
#include "report.h"

using namespace vlm::bench;

namespace {

constexpr int rounds = 101;
constexpr int labelled_glyphs = 38;  // of all

SRWLOCK lock = SRWLOCK_INIT;
std::vector<std::byte> file(vlm::png_size(vlm::glyph_size, vlm::glyph_size));
unsigned seen;

void request_all() {
  std::uint32_t length;
  for (const bool sony_style : {true, false}) {
    for (std::uint32_t number = 0; number < vlm::glyph_count; ++number) {
      vlm::glyph_png(sony_style, number, &length);
      seen += length;
    }
  }
}

vlm::GlyphMask letters() {
  vlm::GlyphMask mask{};
  vlm::draw_label("RB", 40, mask);
  return mask;
}
void draw_letters() { seen += letters()[0]; }

void draw(const vlm::GlyphShape& shape) {
  vlm::write_png(vlm::glyph_size, vlm::glyph_size, vlm::draw_glyph(shape, letters()), file);
  seen += static_cast<unsigned>(file.back());
}

}  // namespace

int main() {
  const double all = time_of(request_all);  // the process's first letters too
  const double letters = time_of([] {
    for (int i = 0; i < labelled_glyphs; ++i) draw_letters();
  });
  print_row("draw all 56 glyphs, once; peer: the letters of 38", "ms", letters / 1e6, all / 1e6, "100 ms");

  // Which are drawn in the shortest time and in the longest.
  static constexpr vlm::GlyphShape bar = {vlm::GlyphBase::bar, vlm::GlyphIcon::none, vlm::DpadArm::none};
  static constexpr vlm::GlyphShape dpad = {vlm::GlyphBase::none, vlm::GlyphIcon::dpad, vlm::DpadArm::left};
  const auto simple = compare(rounds, 4, draw_letters, [] { draw(bar); });
  print_row("draw a bar with letters; peer: the letters", "us", simple.peer / 1e3, simple.ours / 1e3, "3000 us");
  const auto involved = compare(rounds, 4, draw_letters, [] { draw(dpad); });
  print_row("draw a d-pad, with letters; peer: the letters", "us", involved.peer / 1e3, involved.ours / 1e3, "3000 us");

  const auto cached = compare(
      rounds, 10000,
      [] {
        AcquireSRWLockExclusive(&lock);
        ReleaseSRWLockExclusive(&lock);
      },
      [] {
        std::uint32_t length;
        vlm::glyph_png(true, 3, &length);
        seen += length;
      });
  print_row("request a glyph again; peer: an exclusive lock", "ns", cached.peer, cached.ours, "peer + 30 ns");
  return seen == 0;
}
