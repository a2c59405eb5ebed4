// Outcome of reading foreign bytes: the value, or a sentence that says what was wrong and where.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <expected>
#include <string>

namespace vlm {

/// What was wrong with an input, in words for the person who supplied it: expected, found, where.
struct Fault {
  std::string text;
};

template <class T>
using Result = std::expected<T, Fault>;

/// Makes the failed side of a Result from a printf format.
[[gnu::format(__printf__, 1, 2)]] inline std::unexpected<Fault> fault(const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return std::unexpected(Fault{text});
}

}  // namespace vlm
