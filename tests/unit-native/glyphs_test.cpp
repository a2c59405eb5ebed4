// Reads the library's button glyphs with libpng: each shows what its number stands for, in white, and nothing else
// looks like it. What they look like is in docs/glyphs.png.
//
//   glyphs_test FOLDER     sony-0.png to xbox-27.png
#include <png.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace {

int faults = 0;
void check(bool good, const std::string& what) {
  if (good) return;
  ++faults;
  std::puts(what.c_str());
}

/// Glyphs with equal names are equal pictures.
const char* const names[2][28] = {
    {"PS",    "menu",  "CREATE", "cross", "ring", "triangle", "square", "R1",  "R2", "L1",
     "L2",    "pad",   "pad",    "L",     "L",    "L",        "R",      "R",   "R",  "TOUCH",
     "TOUCH", "TOUCH", "TOUCH",  "TOUCH", "left", "right",    "up",     "down"},
    {"X in 44", "menu", "VIEW", "A",  "B",  "Y",    "X",    "RB",   "RT",   "LB",   "LT",   "pad",   "pad", "LS",
     "LS",      "LS",   "RS",   "RS", "RS", "VIEW", "VIEW", "VIEW", "VIEW", "VIEW", "left", "right", "up",  "down"}};

using Alphas = std::vector<int>;

Alphas read_png(const std::string& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  check(png_image_begin_read_from_file(&image, path.c_str()) && image.format == PNG_FORMAT_RGBA && image.width == 96 &&
            image.height == 96,
        path + ": not of 96 by 96 pixels");
  std::vector<unsigned char> bytes(96 * 96 * 4);
  check(png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr) && !image.warning_or_error,
        path + ": damaged");
  Alphas alphas;
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    check(bytes[i] == 255 && bytes[i + 1] == 255 && bytes[i + 2] == 255, path + ": not white");
    alphas.push_back(bytes[i + 3]);
  }
  return alphas;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return std::fputs("usage: glyphs_test FOLDER\n", stderr), 1;
  std::map<std::string, Alphas> pictures;
  for (int i = 0; i < 56; ++i) {
    const std::string name = names[i / 28][i % 28];
    const Alphas alphas =
        read_png(argv[1] + std::string(i < 28 ? "/sony-" : "/xbox-") + std::to_string(i % 28) + ".png");
    check(pictures.emplace(name, alphas).first->second == alphas, name + ": another picture of the same");
  }
  for (const auto& [name, alphas] : pictures) {
    for (const auto& [other, other_alphas] : pictures) {
      int different = 0;
      for (int i = 0; i < 96 * 96; ++i) different += std::abs(alphas[i] - other_alphas[i]) > 128;
      check(name == other || different > 20, name + " looks like " + other);
    }
  }
  return faults == 0 ? 0 : 1;
}
