// The Objective-C classes that an image asks for and those that it has.
#include <algorithm>
#include <string_view>

#include "inspect/gather.h"
#include "macho/format.h"
#include "support/byte_reader.h"

namespace vlm::inspect {
namespace {

constexpr std::string_view class_prefix = "_OBJC_CLASS_$_";

}  // namespace

ObjectiveC gather_objective_c(const MachImage& image, const Format& format, const Linkage* linkage) {
  ObjectiveC classes;
  if (linkage != nullptr) {
    for (const ImportedSymbol& import : linkage->imports) {
      if (!import.name.starts_with(class_prefix)) continue;
      classes.needed.push_back({import.name.substr(class_prefix.size()), import.answer});
    }
  }
  for (const Section& section : format.sections) {
    if (section.name == "__objc_classlist") classes.brought += section.size / sizeof(std::uint64_t);
  }
  // Not by the index of symbols, which has one name for each place: another symbol may be where a class is.
  if (image.nsyms == 0 || image.strsize == 0) return classes;
  ByteReader symbols(image.file_range(image.symoff, std::uint64_t{image.nsyms} * sizeof(Nlist64)));
  while (!symbols.at_end()) {
    const auto symbol = symbols.read<Nlist64>();
    if ((symbol.n_type & (N_STAB | N_TYPE)) != N_SECT) continue;
    ByteReader strings(image.file_range(image.stroff, image.strsize), symbol.n_strx);
    const std::string_view name = strings.c_string();
    if (name.starts_with(class_prefix)) classes.brought_names.emplace_back(name.substr(class_prefix.size()));
  }
  std::ranges::sort(classes.brought_names);
  return classes;
}

}  // namespace vlm::inspect
