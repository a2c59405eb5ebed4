// Compares what the library's reader finds in an image's compact unwind information, for every address, with the
// listing of another reader:
//
//   llvm-objdump-19 --macho --unwind-info IMAGE | unwind_info_test IMAGE
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "cxx/compact_unwind.h"
#include "macho/commands.h"
#include "macho/queries.h"

namespace {

/// What the listing says about the functions that start where its keys are.
struct Listing {
  std::map<std::uint32_t, std::uint32_t> encodings;
  std::map<std::uint32_t, std::uint32_t> lsdas;
  std::vector<std::uint32_t> personalities;
  std::uint32_t end = 0;  // of the last function
};

Listing read_listing(std::istream& in) {
  Listing listing;
  for (std::string line; std::getline(in, line);) {
    unsigned function, value, ignored;
    const char* const text = line.c_str();
    if (std::sscanf(text, " [%u]: function offset=%x, encoding=%x", &ignored, &function, &value) == 3 ||
        std::sscanf(text, " [%u]: function offset=%x, encoding[%u]=%x", &ignored, &function, &ignored, &value) == 4) {
      listing.encodings[function] = value;
    } else if (std::sscanf(text, " [%u]: function offset=%x, LSDA offset=%x", &ignored, &function, &value) == 3) {
      listing.lsdas[function] = value;
    } else if (std::sscanf(text, " personality[%u]: %x", &ignored, &value) == 2) {
      listing.personalities.push_back(value);
    } else if (std::sscanf(text, " [%u]: function offset=%x, 2nd level", &ignored, &function) == 2) {
      listing.end = function;
    }
  }
  return listing;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::ifstream file(argv[1], std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  static vlm::MachImage image;
  std::snprintf(image.path, sizeof image.path, "%s", argv[1]);
  image.file_data = reinterpret_cast<const std::byte*>(bytes.data());
  image.file_size = bytes.size();
  const bool read = vlm::macho_read_commands(image).has_value();
  image.base = image.vm_min;
  const auto* const place = read ? vlm::macho_find_section(image, "__TEXT", "__unwind_info") : nullptr;
  if (place == nullptr) return std::printf("%s: no unwind information\n", argv[1]), 1;
  const auto section = vlm::UnwindSection::open(vlm::macho_bytes_at(image, place->addr).first(place->size));
  const Listing listing = read_listing(std::cin);
  if (!section || listing.encodings.empty()) {
    std::printf("%s: nothing to compare: %s\n", argv[1], section ? "no listing" : section.error().text.c_str());
    return 1;
  }

  int wrong = 0;
  std::uint32_t addresses = 0;
  for (std::uint32_t at = listing.encodings.begin()->first - 1; at < listing.end; ++at, ++addresses) {
    vlm::UnwindEntry expected{};
    const auto next = listing.encodings.upper_bound(at);
    const bool known = next != listing.encodings.begin();
    if (known) {
      std::tie(expected.function, expected.encoding) = *std::prev(next);
      const auto lsda = listing.lsdas.find(expected.function);
      if (lsda != listing.lsdas.end()) expected.lsda = lsda->second;
      if (const unsigned personality = expected.encoding >> 28 & 3) {
        expected.personality = listing.personalities.at(personality - 1);
      }
    }
    const auto found = section->find(at);
    const bool right =
        found && found->has_value() == known && (!known || std::memcmp(&**found, &expected, sizeof expected) == 0);
    if (right || ++wrong > 10) continue;
    std::printf("0x%x: expected function 0x%x, encoding 0x%08x, LSDA 0x%x\n", at, expected.function, expected.encoding,
                expected.lsda);
  }
  std::printf("%s: %zu functions, %u addresses, %d wrong\n", argv[1], listing.encodings.size(), addresses, wrong);
  return wrong == 0 ? 0 : 1;
}
