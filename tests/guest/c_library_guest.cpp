// Standard streams, called as compiled macOS code calls them.
#include "darwin.h"

GUEST_TEST(printing_reaches_the_hosts_standard_output) {
  const char line[] = "guest: printed through ___stdoutp\n";
  CHECK(fwrite(line, 1, sizeof line - 1, stdout) == sizeof line - 1);
  CHECK(fflush(stdout) == 0);
}

GUEST_TEST(standard_input_is_a_stream_of_its_own) {
  char byte;
  CHECK(stdin != nullptr && stdin != stdout && fread(&byte, 1, 0, stdin) == 0);
}
