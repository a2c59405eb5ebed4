#include "input/glyph_labels.h"

#include <windows.h>

#include <algorithm>
#include <memory>

#include "diag/log.h"

namespace vlm {
namespace {

struct ContextDeleter {
  using pointer = HDC;
  void operator()(HDC context) const noexcept { DeleteDC(context); }
};
using UniqueContext = std::unique_ptr<HDC, ContextDeleter>;

struct GdiObjectDeleter {
  using pointer = HGDIOBJ;
  void operator()(HGDIOBJ object) const noexcept { DeleteObject(object); }
};
using UniqueGdiObject = std::unique_ptr<HGDIOBJ, GdiObjectDeleter>;

/// A pixel of a 32-bit DIB section.
struct DibPixel {
  std::uint8_t blue, green, red, unused;
};

/// Wider texts come near the edges of the bar that they are cut out of.
constexpr int max_text_width = glyph_size - 16;

UniqueGdiObject make_font(int height) {
  // The family says what to take where the face is not installed.
  return UniqueGdiObject(CreateFontA(height, 0, 0, 0, FW_BLACK, FALSE, FALSE, FALSE, ANSI_CHARSET, OUT_DEFAULT_PRECIS,
                                     CLIP_DEFAULT_PRECIS, ANTIALIASED_QUALITY, VARIABLE_PITCH | FF_SWISS, "Segoe UI"));
}

}  // namespace

bool draw_label(const char* text, int height, GlyphMask& mask) {
  constexpr int size = glyph_size;
  BITMAPINFO format{};
  format.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
  format.bmiHeader.biWidth = size;
  format.bmiHeader.biHeight = -size;  // top-down
  format.bmiHeader.biPlanes = 1;
  format.bmiHeader.biBitCount = 32;
  void* bits = nullptr;
  // Deleted from the last to the first: an object that is selected into a context cannot be deleted.
  const UniqueGdiObject section(CreateDIBSection(nullptr, &format, DIB_RGB_COLORS, &bits, nullptr, 0));
  const UniqueGdiObject font = make_font(height);
  UniqueGdiObject fitting_font;
  const UniqueContext context(CreateCompatibleDC(nullptr));
  if (!section || !font || !context) {
    log_message(0, "[pad] label '%s' was not drawn: no bitmap, font or context, error %lu", text, GetLastError());
    return false;
  }
  auto* const pixels = static_cast<DibPixel*>(bits);
  std::fill_n(pixels, mask.size(), DibPixel{});
  SelectObject(context.get(), section.get());
  SelectObject(context.get(), font.get());
  RECT extent{};
  DrawTextA(context.get(), text, -1, &extent, DT_CALCRECT | DT_SINGLELINE);
  if (extent.right > max_text_width) {  // a face that is wider than the one asked for
    fitting_font = make_font(height * max_text_width / static_cast<int>(extent.right));
    SelectObject(context.get(), fitting_font.get());
  }
  SetBkMode(context.get(), TRANSPARENT);
  SetTextColor(context.get(), RGB(255, 255, 255));
  RECT square = {0, 0, size, size};
  const bool drawn = DrawTextA(context.get(), text, -1, &square, DT_CENTER | DT_VCENTER | DT_SINGLELINE) != 0;
  GdiFlush();
  std::transform(pixels, pixels + mask.size(), mask.begin(), [](DibPixel pixel) { return pixel.green; });
  if (!drawn) log_message(0, "[pad] label '%s' was not drawn, error %lu", text, GetLastError());
  return drawn;
}

}  // namespace vlm
