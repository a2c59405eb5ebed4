// Button glyphs: drawing them, against the letters that GDI draws for them in any case; one that was drawn before,
// against the lock that guards it.
//
//   glyphs_bench [ROUNDS]
//
//   case | peer | ours | ratio | goal
#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "input/glyph_labels.h"
#include "input/glyph_shapes.h"
#include "input/glyphs.h"
#include "report.h"

namespace {

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

void draw_letters() { seen += vlm::draw_label("RB", 40)[0]; }

void draw(const vlm::GlyphShape& shape) {
  vlm::write_png(vlm::glyph_size, vlm::glyph_size, vlm::draw_glyph(shape, vlm::draw_label("RB", 40)), file);
  seen += static_cast<unsigned>(file.back());
}

}  // namespace

int main(int argc, char** argv) {
  using vlm::bench::print_row;
  const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 101;

  const double start = vlm::bench::now_ns();
  request_all();  // the process's first letters too
  const double middle = vlm::bench::now_ns();
  for (int i = 0; i < labelled_glyphs; ++i) draw_letters();
  const double end = vlm::bench::now_ns();
  print_row("draw all 56 glyphs, once; peer: the letters of 38", "ms", (end - middle) / 1e6, (middle - start) / 1e6,
            "100 ms");

  // Which are drawn in the shortest time and in the longest.
  static constexpr vlm::GlyphShape bar = {vlm::GlyphBase::bar, vlm::GlyphIcon::none, vlm::DpadArm::none};
  static constexpr vlm::GlyphShape dpad = {vlm::GlyphBase::none, vlm::GlyphIcon::dpad, vlm::DpadArm::left};
  const auto simple = vlm::bench::compare(rounds, 4, draw_letters, [] { draw(bar); });
  print_row("draw a bar with letters; peer: the letters", "us", simple.peer / 1e3, simple.ours / 1e3, "3000 us");
  const auto involved = vlm::bench::compare(rounds, 4, draw_letters, [] { draw(dpad); });
  print_row("draw a d-pad, with letters; peer: the letters", "us", involved.peer / 1e3, involved.ours / 1e3, "3000 us");

  const auto cached = vlm::bench::compare(
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
