// A save of equal records: each new state goes into a new file, which takes the place of the old one by being renamed
// over it. store_test kills the process meanwhile and starts it again. Told to the standard output, line by line:
//
//   opened NUMBER   of the state that is there
//   kept NUMBER     this state is in the place of the one before it
//   broken          what is there is not whole
#include "darwin.h"

static void tell(const char* line, int64 number = 0) {
  char text[100];
  write(1, text, snprintf(text, sizeof text, line, number));
}

/// Writes until somebody ends the process.
extern "C" int64 write_until_killed() {
  constexpr int64 count = 1000;
  int64 number = 0, records[count + 1];
  mkdir("store.tmp", 0755);
  int32 file = open("store.tmp/save", O_RDONLY);
  if (file >= 0) {
    bool whole = read(file, records, sizeof records) == count * 8;
    for (int64 i = 0; i < count; ++i) whole = whole && records[i] == records[0] + i;
    if (!whole) tell("broken\n");
    number = records[0];
    close(file);
  }
  for (tell("opened %ld\n", number);; tell("kept %ld\n", number)) {
    ++number;
    file = open("store.tmp/new", O_WRONLY | O_CREAT | O_TRUNC, 0644);
    for (int64 i = 0; i < count; ++i) {
      const int64 record = number + i;
      if (write(file, &record, 8) != 8) tell("broken\n");
    }
    if (close(file) != 0 || rename("store.tmp/new", "store.tmp/save") != 0) tell("broken\n");
  }
}
