#include "shared/command_line.h"

#include <algorithm>

namespace vlm::tools {

Result<void> read_arguments(std::span<const std::string> arguments, std::initializer_list<Option> options,
                            std::initializer_list<const char**> places) {
  auto place = places.begin();
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
    } else if (place == places.end()) {
      return fault("'%s' is one too many", argument.c_str());
    } else {
      **place++ = argument.c_str();
    }
  }
  return {};
}

}  // namespace vlm::tools
