// Which frames of the image an exception gets past.
#include <algorithm>

#include "cxx/compact_unwind.h"
#include "inspect/gather.h"
#include "macho/queries.h"
#include "shared/files.h"

namespace vlm::inspect {
namespace {

const char* kind_of(std::uint32_t encoding) {
  if (encoding == 0) return "none";
  switch (unwind_mode(encoding)) {
    case UNWIND_X86_64_MODE_RBP_FRAME: return "rbp frame";
    case UNWIND_X86_64_MODE_STACK_IMMD: return "frameless";
    case UNWIND_X86_64_MODE_STACK_IND: return "frameless, size in the code";
    case UNWIND_X86_64_MODE_DWARF: return "DWARF";
    default: return "unknown";
  }
}

}  // namespace

Unwind gather_unwind(const MachImage& image) {
  Unwind unwind;
  const MachSection* const section = macho_find_section(image, "__TEXT", "__unwind_info");
  unwind.present = section != nullptr && section->size != 0;
  if (!unwind.present) return unwind;
  const auto bytes = macho_bytes_at(image, section->addr);
  const auto opened = UnwindSection::open(bytes.first(std::min<std::uint64_t>(bytes.size(), section->size)));
  if (!opened) {
    unwind.fault = opened.error().text;
    return unwind;
  }
  const auto walked = opened->for_each_function([&](const UnwindEntry& entry) {
    const char* const kind = kind_of(entry.encoding);
    ++unwind.kinds[kind];
    const std::uint64_t vmaddr = image.vm_min + entry.function;
    if (entry.encoding == 0) return;  // nor would macOS get past it
    if (decode_compact(entry.encoding, macho_bytes_at(image, vmaddr))) return;
    unwind.opaque.push_back({vmaddr, entry.encoding, kind, tools::describe_place(image, vmaddr)});
  });
  if (!walked) unwind.fault = walked.error().text;
  return unwind;
}

}  // namespace vlm::inspect
