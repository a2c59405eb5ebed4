// Which static constructors the loader runs, and which it passes over.
#include "inspect/gather.h"
#include "macho/format.h"
#include "macho/queries.h"
#include "shared/files.h"
#include "support/byte_reader.h"

namespace vlm::inspect {
namespace {

/// As the loader chooses them: by name, in whatever segment.
constexpr char initializer_section[] = "__mod_init_func";

std::string label(const Section& section) { return section.segment + "," + section.name; }

}  // namespace

Initializers gather_initializers(const MachImage& image, const Format& format) {
  Initializers initializers;
  for (const Section& section : format.sections) {
    const std::uint32_t type = section.flags & SECTION_TYPE;
    if (section.name == initializer_section) {
      const std::uint64_t count = section.size / sizeof(std::uint64_t);
      initializers.run += count;
      ByteReader in(macho_bytes_at(image, section.addr));
      for (std::uint64_t i = 0; i < count && in.ok(); ++i) {
        const auto entry = in.read<std::uint64_t>();
        if (in.ok() && macho_is_code(image, entry)) continue;
        initializers.outside_code.push_back("initializer " + std::to_string(i) + " of " + label(section) + " is " +
                                            (in.ok() ? tools::describe_place(image, entry) : std::string("null")) +
                                            ", not in the image's code");
      }
    } else if (type == S_MOD_INIT_FUNC_POINTERS || type == S_THREAD_LOCAL_INIT_FUNCTION_POINTERS) {
      initializers.not_run.push_back(std::to_string(section.size / sizeof(std::uint64_t)) + " in " + label(section));
    } else if (type == S_INIT_FUNC_OFFSETS) {
      initializers.not_run.push_back(std::to_string(section.size / sizeof(std::uint32_t)) + " in " + label(section));
    }
  }
  if (format.has_routines) initializers.not_run.push_back("the one of LC_ROUTINES");
  return initializers;
}

}  // namespace vlm::inspect
