#include "report.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

void print_line(const char* text) {
  std::fputs(text, stdout);
  std::fputs("\n", stdout);
  std::fflush(stdout);
}

static void print(const char* prefix, const char* format, va_list arguments) {
  char text[1024];
  const int size = std::snprintf(text, sizeof text, "%s", prefix);
  std::vsnprintf(text + size, sizeof text - size, format, arguments);
  print_line(text);
}

void say(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print("player: ", format, arguments);
  va_end(arguments);
}

void fail(ExitCode code, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print("player: ERROR: ", format, arguments);
  va_end(arguments);
  std::_Exit(code);
}

void expect(bool condition, const char* format, ...) {
  if (condition) return;
  va_list arguments;
  va_start(arguments, format);
  print("player: ERROR: not as expected: ", format, arguments);
  va_end(arguments);
  std::_Exit(EXIT_NOT_AS_EXPECTED);
}
