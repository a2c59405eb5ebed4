#include "shared/command_line.h"

#include <algorithm>

namespace vlm::tools {

Result<void> read_arguments(std::span<const std::string> arguments, std::initializer_list<Option> options,
                            const char*& image) {
  for (auto next = arguments.begin(); next != arguments.end();) {
    const std::string& argument = *next++;
    const auto* const option = std::ranges::find(options, argument, &Option::name);
    if (option != options.end()) {
      if (bool* const* given = std::get_if<bool*>(&option->place)) {
        **given = true;
      } else if (next == arguments.end()) {
        return fault("%s needs %s behind it", argument.c_str(), option->value);
      } else {
        *std::get<const char**>(option->place) = (next++)->c_str();
      }
    } else if (argument.starts_with("-")) {
      return fault("unknown option '%s'", argument.c_str());
    } else if (image != nullptr) {
      return fault("one image at a time: '%s' or '%s'", image, argument.c_str());
    } else {
      image = argument.c_str();
    }
  }
  if (image == nullptr) return fault("the image is missing");
  return {};
}

}  // namespace vlm::tools
