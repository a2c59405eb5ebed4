// A log-structured store as games keep their saves in. What is written goes to the end of one file; now and then the
// newest records go into a new file, which takes the place of the old one by being renamed over it.
// store_test kills the process while it writes and starts it again.
//
//   log:  records, numbered one after the other; of a file that was renamed, the first 32 are whole
//
// Told to the standard output, line by line:
//
//   opened LAST TORN     number of the last record; 1 for one of an interrupted process that is not whole, thrown away
//   kept LAST            all records up to this one are in the file
//   broken: WHAT         the end: something that was kept is not there, or something half-written is
#include "darwin.h"

namespace {

constexpr char folder[] = "store.tmp", log_name[] = "store.tmp/log", new_name[] = "store.tmp/new";
constexpr uint64 record_size = 256;

/// Each number has bytes of its own, so that whatever is not where it was written shows.
void make_record(uint64 number, uint64* words) {
  words[0] = number;
  for (uint64 i = 1; i < record_size / 8; ++i) words[i] = (number << 8 | i) * 2654435761;
}

void tell(const char* line, uint64 a = 0, uint64 b = 0) {
  char text[100];
  write(1, text, static_cast<uint64>(snprintf(text, sizeof text, line, a, b)));
}
bool broken(const char* what) { return tell("broken: %s\n", reinterpret_cast<uint64>(what)), false; }

uint64 last = 0;  // number of the newest record

/// In small pieces, so that a process that is killed leaves some of them behind.
bool write_record(int32 file, uint64 number) {
  uint64 words[record_size / 8];
  make_record(number, words);
  bool good = true;
  for (uint64 at = 0; at < record_size / 8; at += 2) good &= write(file, words + at, 16) == 16;
  return good;
}

/// Puts a file with the newest records in the log's place.
bool compact() {
  const int32 file = open(new_name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  bool good = true;
  for (uint64 number = last < 32 ? 1 : last - 31; number <= last; ++number) good &= write_record(file, number);
  return good && close(file) == 0 && rename(new_name, log_name) == 0;
}

/// Reads and checks the whole log and cuts a record off that is not whole.
bool load_log(bool& torn) {
  const int32 file = open(log_name, O_RDWR | O_CREAT, 0644);
  uint64 found[record_size / 8], expected[record_size / 8];
  int64 size, end = 0;
  for (uint64 number = 0; (size = read(file, found, record_size)) > 0; ++number) {
    if (number == 0) number = found[0];
    make_record(number, expected);
    if (memcmp(found, expected, size) != 0) return broken("the log holds what was not written there");
    if (size < (int64)record_size) break;
    last = number;
    end += record_size;
  }
  if (last >= 32 && end < 32 * (int64)record_size) return broken("a record of a file that was renamed into place");
  torn = size > 0;
  return (!torn || ftruncate(file, end) == 0 || broken("ftruncate")) && close(file) == 0;
}

}  // namespace

/// Opens the store, checks all that is in it and writes until somebody ends the process.
extern "C" int64 write_until_killed() {
  mkdir(folder, 0755);
  bool torn;
  if (!load_log(torn)) return 1;
  for (tell("opened %llu %llu\n", last, torn);; tell("kept %llu\n", last)) {
    const int32 file = open(log_name, O_WRONLY | O_APPEND);
    for (int32 i = 0; i < 40; ++i) {
      if (!write_record(file, last + 1)) return broken("a record cannot be written");
      if (++last % 8 == 0) tell("kept %llu\n", last);
    }
    close(file);
    if (!load_log(torn) || torn) return broken("a record is not whole although it was written");
    if (!compact()) return broken("the log cannot be replaced");
  }
}
