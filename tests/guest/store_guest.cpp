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

constexpr char log_name[] = "store.tmp/log", new_name[] = "store.tmp/new";
constexpr int64 record_size = 256;
int64 last = 0;  // number of the newest record

void tell(const char* line, int64 a = 0, int64 b = 0) {
  char text[100];
  write(1, text, snprintf(text, sizeof text, line, a, b));
}

/// Each number has bytes of its own, so that whatever is not where it was written shows.
void make_record(int64 number, int64* words) {
  for (int64 i = 0; i < record_size / 8; ++i) words[i] = i == 0 ? number : (number << 8 | i) * 2654435761;
}

/// In small pieces, so that a process that is killed leaves some of them behind.
bool write_record(int32 file, int64 number) {
  int64 words[record_size / 8], written = 0;
  make_record(number, words);
  for (uint64 at = 0; at < record_size / 8; at += 2) written += write(file, words + at, 16);
  return written == record_size;
}

/// Puts a file with the newest records in the log's place.
bool compact() {
  const int32 file = open(new_name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  bool good = true;
  for (int64 number = last - 31; number <= last; ++number) good &= write_record(file, number);
  return good && close(file) == 0 && rename(new_name, log_name) == 0;
}

/// Reads and checks the whole log and cuts a record off that is not whole. What is wrong with it, or null.
const char* load_log(bool& torn) {
  const int32 file = open(log_name, O_RDWR | O_CREAT, 0644);
  int64 found[record_size / 8], expected[record_size / 8], size, count = 0;
  for (; (size = read(file, found, record_size)) == record_size; ++count) {
    make_record(last = count == 0 ? found[0] : last + 1, expected);
    if (memcmp(found, expected, size) != 0) return "the log holds what was not written there";
  }
  torn = size > 0;
  if (last >= 32 && count < 32) return "a record of a file that was renamed into place";
  return ftruncate(file, count * record_size) == 0 && close(file) == 0 ? nullptr : "it cannot be cut";
}

}  // namespace

/// Opens the store, checks all that is in it and writes until somebody ends the process.
extern "C" int64 write_until_killed() {
  mkdir("store.tmp", 0755);
  bool torn;
  const char* wrong = load_log(torn);
  for (tell("opened %ld %ld\n", last, torn); wrong == nullptr; tell("kept %ld\n", last)) {
    const int32 file = open(log_name, O_WRONLY | O_APPEND);
    for (int32 i = 0; i < 40 && wrong == nullptr; ++i) {
      if (!write_record(file, last + 1)) wrong = "a record cannot be written";
      if (++last % 8 == 0) tell("kept %ld\n", last);
    }
    close(file);
    if (wrong == nullptr) wrong = load_log(torn);
    if (wrong == nullptr && (torn || !compact())) wrong = "a record is not whole, or the log cannot be replaced";
  }
  return tell("broken: %s\n", reinterpret_cast<int64>(wrong)), 1;
}
