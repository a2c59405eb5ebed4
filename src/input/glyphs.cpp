#include "input/glyphs.h"

#include <cstddef>
#include <mutex>
#include <new>

#include "input/glyph_labels.h"
#include "input/glyph_shapes.h"
#include "support/locks.h"

namespace vlm {
namespace {

struct Glyph {
  GlyphShape shape;
  const char* label = nullptr;
  int label_height = 0;  // in pixels
};

constexpr Glyph disc(const char* label, int height) {
  return {{GlyphBase::disc, GlyphIcon::none, DpadArm::none}, label, height};
}
constexpr Glyph disc(GlyphIcon icon) { return {{GlyphBase::disc, icon, DpadArm::none}}; }
constexpr Glyph bar(const char* label, int height) {
  return {{GlyphBase::bar, GlyphIcon::none, DpadArm::none}, label, height};
}
constexpr Glyph menu = {{GlyphBase::bar, GlyphIcon::three_bars, DpadArm::none}};
constexpr Glyph dpad(DpadArm arm) { return {{GlyphBase::none, GlyphIcon::dpad, arm}}; }

struct StyledGlyph {
  Glyph sony, xbox;
};

/// By the numbers of the game's managed code.
constexpr StyledGlyph glyphs[] = {
    {disc("PS", 44), disc("X", 44)},
    {menu, menu},
    {bar("CREATE", 24), bar("VIEW", 24)},
    {disc(GlyphIcon::cross), disc("A", 58)},
    {disc(GlyphIcon::ring), disc("B", 58)},
    {disc(GlyphIcon::triangle), disc("Y", 58)},
    {disc(GlyphIcon::square), disc("X", 58)},
    {bar("R1", 40), bar("RB", 40)},
    {bar("R2", 40), bar("RT", 40)},
    {bar("L1", 40), bar("LB", 40)},
    {bar("L2", 40), bar("LT", 40)},
    {dpad(DpadArm::none), dpad(DpadArm::none)},
    {dpad(DpadArm::none), dpad(DpadArm::none)},
    {disc("L", 56), disc("LS", 44)},
    {disc("L", 56), disc("LS", 44)},
    {disc("L", 56), disc("LS", 44)},
    {disc("R", 56), disc("RS", 44)},
    {disc("R", 56), disc("RS", 44)},
    {disc("R", 56), disc("RS", 44)},
    {bar("TOUCH", 24), bar("VIEW", 24)},
    {bar("TOUCH", 24), bar("VIEW", 24)},
    {bar("TOUCH", 24), bar("VIEW", 24)},
    {bar("TOUCH", 24), bar("VIEW", 24)},
    {bar("TOUCH", 24), bar("VIEW", 24)},
    {dpad(DpadArm::left), dpad(DpadArm::left)},
    {dpad(DpadArm::right), dpad(DpadArm::right)},
    {dpad(DpadArm::up), dpad(DpadArm::up)},
    {dpad(DpadArm::down), dpad(DpadArm::down)},
};
static_assert(std::size(glyphs) == glyph_count);

static_assert(png_rows_size(glyph_size, glyph_size) <= png_max_rows_size);

/// A drawn glyph. All files have the same length.
struct GlyphFile {
  std::byte bytes[png_size(glyph_size, glyph_size)];
};
static_assert(sizeof(GlyphFile) == 37028);

/// Held while a glyph is drawn too: no glyph is drawn twice.
constinit SrwLock cache_lock;
constinit const GlyphFile* cache[2][glyph_count] = {};  // by sony_style, number; null: not drawn yet

/// Null when memory is out, or the letters cannot be drawn: without them it is remembered by nobody, and the next
/// request tries again. Not inlined: its pixels make a stack frame of many pages, which every request would probe.
[[gnu::noinline]] const GlyphFile* make_file(const Glyph& glyph) {
  GlyphMask label{};
  if (glyph.label != nullptr && !draw_label(glyph.label, glyph.label_height, label)) return nullptr;
  auto* const file = new (std::nothrow) GlyphFile;
  if (file != nullptr) write_png(glyph_size, glyph_size, draw_glyph(glyph.shape, label), file->bytes);
  return file;
}

}  // namespace

const void* glyph_png(bool sony_style, std::uint32_t number, std::uint32_t* length) {
  *length = 0;
  if (number >= glyph_count) return nullptr;
  const std::lock_guard guard(cache_lock);
  const GlyphFile*& file = cache[sony_style ? 1 : 0][number];
  if (file == nullptr) file = make_file(sony_style ? glyphs[number].sony : glyphs[number].xbox);
  if (file != nullptr) *length = sizeof(GlyphFile);
  return file;
}

}  // namespace vlm
