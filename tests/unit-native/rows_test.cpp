// Every row of the shim table is imported by some guest of the tests.
//   rows_test LIBRARY IMAGE...
#include <cstdio>
#include <memory>
#include <set>
#include <string_view>

#include "inspect/gather.h"
#include "inspect/library.h"
#include "shared/files.h"

using namespace vlm;

int main(int count, char** arguments) {
  const auto bytes = count > 2 ? tools::read_file(arguments[1]) : std::nullopt;
  const auto library = bytes ? inspect::read_library(arguments[1], *bytes) : Result<inspect::Library>(fault("no file"));
  if (!library) return std::printf("cannot use the library: %s\n", library.error().text.c_str()), 1;
  std::set<std::string_view> unreached;
  for (const auto& [row, family] : library->family_of) unreached.insert(row);
  for (int i = 2; i < count; ++i) {
    const auto file = tools::read_file(arguments[i]);
    auto image = std::make_unique<MachImage>();
    if (!file || tools::read_image(arguments[i], *file, *image)) return std::printf("cannot use %s\n", arguments[i]), 1;
    for (const auto& import : inspect::gather_linkage(*image, &*library).imports) unreached.erase(import.name);
  }
  for (const std::string_view row : unreached) std::puts(("no guest imports " + std::string(row)).c_str());
  std::printf("%zu rows, %d images, %zu rows unreached\n", library->family_of.size(), count - 2, unreached.size());
  return library->family_of.size() == 371 && unreached.empty() ? 0 : 1;
}
