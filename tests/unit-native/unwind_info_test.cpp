// Prints what the library's reader finds in an image's compact unwind information, a function a line, for
// check_unwind_info to compare with another reader's; ends with 1 when a look-up by address disagrees with the list.
#include <cstdio>
#include <cstring>
#include <vector>

#include "cxx/compact_unwind.h"
#include "macho/queries.h"
#include "shared/files.h"

int main(int argc, char** argv) {
  const auto opened = argc == 2 ? vlm::tools::open_image(argv[1]) : vlm::fault("one image is needed");
  if (!opened) return std::puts(opened.error().text.c_str()), 1;
  const vlm::MachImage& image = (*opened)->image;
  const auto* const place = vlm::macho_find_section(image, "__TEXT", "__unwind_info");
  if (place == nullptr) return std::puts("no unwind information"), 1;
  const auto section = vlm::UnwindSection::open(vlm::macho_bytes_at(image, place->addr).first(place->size));
  if (!section) return std::puts(section.error().text.c_str()), 1;
  std::vector<vlm::UnwindEntry> entries;
  if (!section->for_each_function([&](const vlm::UnwindEntry& entry) { entries.push_back(entry); })) return 1;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const auto whole = section->find(entries[i].function);
    if (!whole || !*whole) return std::printf("nothing at %x\n", entries[i].function), 1;
    const vlm::UnwindEntry& entry = **whole;
    std::printf("%x %x %x %x\n", entry.function, entry.encoding, entry.lsda, entry.personality);
    const std::uint32_t end = i + 1 < entries.size() ? entries[i + 1].function : entry.function + 1;
    for (std::uint32_t at = entry.function; at < end; ++at) {
      const auto found = section->find(at);
      if (!found || !*found || std::memcmp(&**found, &entry, sizeof entry) != 0)
        return std::printf("wrong at %x\n", at), 1;
    }
  }
  return entries.empty() || section->find(entries[0].function - 1).value_or(entries[0]) ? 1 : 0;
}
