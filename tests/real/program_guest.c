// Carries a real program: its `main` is compiled under the name program_main. The driver's "tests" are one run of it,
// with the words of the environment variable PROGRAM_ARGUMENTS.
#include <stdlib.h>
#include <string.h>

int program_main(int argc, char** argv);

int il2cpp_init(const char* domain) { return 0; }

long run_guest_tests(void (*report_failure)(const char* file, long line, const char* what)) {
  char* arguments[64] = {"program"};
  int count = 1;
  const char* const given = getenv("PROGRAM_ARGUMENTS");
  for (char* word = strdup(given ? given : ""); *word && count < 63;) {
    arguments[count++] = word;
    word += strcspn(word, " ");
    if (*word) *word++ = '\0';
  }
  if (program_main(count, arguments) != 0) report_failure("program_guest.c", __LINE__, "the program ended with an error");
  return 1;
}
