// The Objective-C classes that an image asks for and those that it has.
#include <string_view>

#include "inspect/gather.h"
#include "macho/queries.h"

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
  for (const SymbolPlace& place : image.symbol_places->all()) {
    const std::string_view name(reinterpret_cast<const char*>(image.file_data) + image.stroff + place.n_strx);
    if (name.starts_with(class_prefix)) classes.brought_names.emplace_back(name.substr(class_prefix.size()));
  }
  return classes;
}

}  // namespace vlm::inspect
