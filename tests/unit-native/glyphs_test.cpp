// Reads the library's button glyphs with libpng: each shows what its number stands for, in white, and nothing else
// looks like it. What they look like is in docs/glyphs.png.
//
//   glyphs_test FOLDER     sony-0.png to xbox-27.png
#include <png.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

int faults = 0;
void check(bool good, const std::string& what) {
  if (!good) ++faults, std::puts(what.c_str());
}

/// Glyphs with equal names are equal pictures.
const char* const names[2][28] = {
    {"PS",    "menu",  "CREATE", "cross", "ring", "triangle", "square", "R1",  "R2", "L1",
     "L2",    "pad",   "pad",    "L",     "L",    "L",        "R",      "R",   "R",  "TOUCH",
     "TOUCH", "TOUCH", "TOUCH",  "TOUCH", "left", "right",    "up",     "down"},
    {"X in 44", "menu", "VIEW", "A",  "B",  "Y",    "X",    "RB",   "RT",   "LB",   "LT",   "pad",   "pad", "LS",
     "LS",      "LS",   "RS",   "RS", "RS", "VIEW", "VIEW", "VIEW", "VIEW", "VIEW", "left", "right", "up",  "down"}};

using Pixels = std::vector<unsigned char>;

Pixels read_png(const std::string& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  Pixels bytes(96 * 96 * 4);
  bool good = png_image_begin_read_from_file(&image, path.c_str()) && image.format == PNG_FORMAT_RGBA &&
              image.width == 96 && image.height == 96 &&
              png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr) && !image.warning_or_error;
  for (std::size_t i = 0; i < bytes.size(); ++i) good = good && (i % 4 == 3 || bytes[i] == 255);
  check(good, path + ": not 96 by 96 pixels of white");
  return bytes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return std::fputs("usage: glyphs_test FOLDER\n", stderr), 1;
  std::map<std::string, Pixels> pictures;
  std::map<Pixels, std::string> shown;
  for (int i = 0; i < 56; ++i) {
    const std::string name = names[i / 28][i % 28], kind = i < 28 ? "/sony-" : "/xbox-";
    const Pixels pixels = read_png(argv[1] + kind + std::to_string(i % 28) + ".png");
    check(pictures.emplace(name, pixels).first->second == pixels, name + ": another picture of the same");
    const std::string& other = shown.emplace(pixels, name).first->second;
    check(name == other, name + " looks like " + other);
  }
  return faults == 0 ? 0 : 1;
}
