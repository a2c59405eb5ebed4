// Every row of the shim table is imported by some guest of the tests.
//   rows_test LIBRARY IMAGE...
#include <cstdio>
#include <set>
#include <string_view>

#include "inspect/gather.h"
#include "inspect/library.h"
#include "shared/files.h"

using namespace vlm;

int main(int count, char** arguments) {
  if (count < 3) return 1;
  const auto file = tools::MappedFile::open(arguments[1]);
  const auto library = file ? inspect::read_library(arguments[1], file->bytes()) : std::unexpected(file.error());
  if (!library) return std::printf("cannot use the library: %s\n", library.error().text.c_str()), 1;
  std::set<std::string_view> unreached;
  for (const auto& [row, family] : library->family_of) unreached.insert(row);
  for (int i = 2; i < count; ++i) {
    const auto opened = tools::open_image(arguments[i]);
    if (!opened) return std::printf("cannot use %s\n", arguments[i]), 1;
    const auto linkage = inspect::gather_linkage((*opened)->image, &*library);
    for (const auto& import : linkage.imports) unreached.erase(import.name);
  }
  for (const std::string_view row : unreached) std::puts(("no guest imports " + std::string(row)).c_str());
  std::printf("%zu rows, %d images, %zu rows unreached\n", library->family_of.size(), count - 2, unreached.size());
  return library->family_of.size() == 371 && unreached.empty() ? 0 : 1;
}
