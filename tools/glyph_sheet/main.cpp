// Shows the button glyphs, as the library draws them on this machine.
//
//   glyph_sheet SHEET.png          all of them with their numbers, on a dark ground
//   glyph_sheet --files FOLDER     each as a file of its own, sony-0.png to xbox-27.png
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

// gdiplus.h wants them without a namespace.
using std::max;  // NOLINT(misc-unused-using-decls)
using std::min;  // NOLINT(misc-unused-using-decls)
#include <gdiplus.h>
#include <shlwapi.h>

#include "input/glyph_shapes.h"
#include "input/glyphs.h"

namespace {

constexpr int columns = 14, rows_per_style = vlm::glyph_count / columns;
constexpr int glyph_width = vlm::glyph_size, gap = 16, number_height = 24;
constexpr int cell_width = glyph_width + gap, cell_height = gap + glyph_width + number_height;

struct GlyphBytes {
  const void* data;
  std::uint32_t length;
};
GlyphBytes glyph(bool sony_style, std::uint32_t number) {
  GlyphBytes bytes{};
  bytes.data = vlm::glyph_png(sony_style, number, &bytes.length);
  return bytes;
}

template <class Draw>
void for_each_glyph(Draw draw) {
  for (const bool sony_style : {true, false}) {
    for (std::uint32_t number = 0; number < vlm::glyph_count; ++number) draw(sony_style, number);
  }
}

bool write_files(const std::string& folder) {
  bool written = true;
  for_each_glyph([&](bool sony_style, std::uint32_t number) {
    const std::string path = folder + (sony_style ? "/sony-" : "/xbox-") + std::to_string(number) + ".png";
    const GlyphBytes png = glyph(sony_style, number);
    FILE* const file = std::fopen(path.c_str(), "wb");
    written = written && file != nullptr && std::fwrite(png.data, 1, png.length, file) == png.length;
    if (file != nullptr) written = std::fclose(file) == 0 && written;
  });
  return written;
}

struct Position {
  int x, y;
};
Position cell(bool sony_style, std::uint32_t number) {
  const int row = static_cast<int>(number) / columns + (sony_style ? 0 : rows_per_style);
  const int column = static_cast<int>(number) % columns;
  return {gap + column * cell_width, gap + row * cell_height};
}

void draw_glyph(Gdiplus::Graphics& sheet, const GlyphBytes& png, Position at) {
  IStream* const stream = SHCreateMemStream(static_cast<const BYTE*>(png.data), png.length);
  Gdiplus::Bitmap picture(stream);
  stream->Release();
  sheet.DrawImage(&picture, at.x, at.y, glyph_width, glyph_width);
}

void draw_number(HDC sheet, std::uint32_t number, Position at) {
  RECT below = {at.x, at.y + glyph_width, at.x + glyph_width, at.y + glyph_width + number_height};
  DrawTextA(sheet, std::to_string(number).c_str(), -1, &below, DT_CENTER | DT_SINGLELINE);
}

bool write_sheet(const std::string& path) {
  Gdiplus::Bitmap bitmap(columns * cell_width + gap, 2 * rows_per_style * cell_height, PixelFormat24bppRGB);
  Gdiplus::Graphics sheet(&bitmap);
  sheet.Clear(Gdiplus::Color(0xFF1B1F27));
  for_each_glyph([&](bool sony_style, std::uint32_t number) {
    draw_glyph(sheet, glyph(sony_style, number), cell(sony_style, number));
  });
  const HDC context = sheet.GetHDC();
  const HFONT font = CreateFontA(18, 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, ANSI_CHARSET, OUT_DEFAULT_PRECIS,
                                 CLIP_DEFAULT_PRECIS, ANTIALIASED_QUALITY, VARIABLE_PITCH | FF_SWISS, "Segoe UI");
  const HGDIOBJ font_before = SelectObject(context, font);
  SetBkMode(context, TRANSPARENT);
  SetTextColor(context, RGB(0x9A, 0xA4, 0xB2));
  for_each_glyph(
      [&](bool sony_style, std::uint32_t number) { draw_number(context, number, cell(sony_style, number)); });
  SelectObject(context, font_before);
  DeleteObject(font);
  sheet.ReleaseHDC(context);
  static constexpr CLSID png_encoder = {0x557CF406, 0x1A04, 0x11D3, {0x9A, 0x73, 0, 0, 0xF8, 0x1E, 0xF3, 0x2E}};
  return bitmap.Save(std::wstring(path.begin(), path.end()).c_str(), &png_encoder, nullptr) == Gdiplus::Ok;
}

}  // namespace

int main(int argc, char** argv) {
  const bool files = argc == 3 && std::strcmp(argv[1], "--files") == 0;
  if (argc != 2 && !files) {
    std::fputs("usage: glyph_sheet SHEET.png | --files FOLDER\n", stderr);
    return 1;
  }
  ULONG_PTR token;
  const Gdiplus::GdiplusStartupInput input;
  if (Gdiplus::GdiplusStartup(&token, &input, nullptr) != Gdiplus::Ok) {
    std::fputs("glyph_sheet: GDI+ did not start\n", stderr);
    return 1;
  }
  const bool written = files ? write_files(argv[2]) : write_sheet(argv[1]);
  if (!written) std::fprintf(stderr, "glyph_sheet: %s could not be written\n", argv[argc - 1]);
  Gdiplus::GdiplusShutdown(token);
  return written ? 0 : 1;
}
