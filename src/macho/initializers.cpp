// Running an image's static constructors: the pointers in its __mod_init_func sections.

#include <cstring>

#include "diag/log.h"
#include "macho/load.h"
#include "macho/queries.h"
#include "support/sysv.h"

namespace vlm {
namespace {

/// argc, argv, envp, apple, and dyld's ProgramVars. System V code may change rsi, rdi and xmm6 to xmm15, which Windows
/// code expects to be kept: the compiler saves them around the call.
using Initializer = SYSV void (*)(std::int32_t, void**, void**, void**, void*);

/// One empty, null-terminated list serves as argv, envp and apple.
void* empty_arguments[3];

}  // namespace

void macho_run_initializers(const MachImage& image) {
  for (int i = 0; i < image.section_count; ++i) {
    const MachSection& section = image.sections[i];
    if (std::strcmp(section.sectname, "__mod_init_func") != 0) continue;
    const std::uint64_t count = section.size / sizeof(Initializer);
    for (std::uint64_t n = 0; n < count; ++n) {
      std::uint64_t entry;
      std::memcpy(&entry, reinterpret_cast<const std::byte*>(section.addr) + n * sizeof entry, sizeof entry);
      if (!macho_is_code(image, entry)) {
        fatal_error("%s is damaged or not supported: initializer %llu of section %s,%s is 0x%llx, not in its code",
                    image.path, static_cast<unsigned long long>(n), section.segname, section.sectname,
                    static_cast<unsigned long long>(entry));
      }
      reinterpret_cast<Initializer>(entry)(0, empty_arguments, empty_arguments, empty_arguments, nullptr);
    }
  }
}

}  // namespace vlm
