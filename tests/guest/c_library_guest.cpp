// Standard streams, called as compiled macOS code calls them.
#include "guest_test.h"

extern "C" {
extern void *__stdinp, *__stdoutp;
uint64 fread(void*, uint64, uint64, void*);
uint64 fwrite(const void*, uint64, uint64, void*);
int32 fflush(void*);
}

GUEST_TEST(printing_reaches_the_hosts_standard_output) {
  const char line[] = "guest: printed through ___stdoutp\n";
  CHECK(fwrite(line, 1, sizeof line - 1, __stdoutp) == sizeof line - 1);
  CHECK(fflush(__stdoutp) == 0);
}

GUEST_TEST(standard_input_is_a_stream_of_its_own) {
  char byte;
  CHECK(__stdinp != nullptr && __stdinp != __stdoutp && fread(&byte, 1, 0, __stdinp) == 0);
}
