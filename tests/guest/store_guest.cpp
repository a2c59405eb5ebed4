// A log-structured store as games keep their saves in. What is written goes to the end of one file; now and then the
// newest records go into a new file, which takes the place of the old one by being renamed over it.
// store_test kills the process while it writes and starts it again.
//
//   log:  number of records that the file was made with | records, numbered one after the other
//
// Told to the standard output, line by line:
//
//   opened LAST TORN UNFINISHED    number of the last record; what of an interrupted process was thrown away: 1 for a
//                                  record that is not whole, 1 for a new file that was not renamed
//   kept LAST                      all records up to this one are in the file
//   broken: WHAT                   the end: something that was kept is not there, or something half-written is
#include "darwin.h"

namespace {

constexpr char folder[] = "store.tmp", log_name[] = "store.tmp/log", new_name[] = "store.tmp/new";

/// Each number has bytes of its own, so that whatever is not where it was written shows.
struct Record {
  uint64 number, words[31];
  explicit Record(uint64 number) : number(number) {
    for (uint64 i = 0; i < 31; ++i) words[i] = (number << 8 | i) * 2654435761;
  }
};

void tell(const char* line, uint64 a = 0, uint64 b = 0, uint64 c = 0) {
  char text[100];
  write(1, text, static_cast<uint64>(snprintf(text, sizeof text, line, a, b, c)));
}
bool broken(const char* what) { return tell("broken: %s\n", reinterpret_cast<uint64>(what)), false; }

uint64 last = 0;  // number of the newest record

/// In small pieces, so that a process that is killed leaves some of them behind.
bool write_record(int32 file, uint64 number) {
  const Record record(number);
  bool good = true;
  for (uint64 at = 0; at < sizeof record; at += 16) good &= write(file, (const uint8*)&record + at, 16) == 16;
  return good;
}

/// Puts a file with the newest records in the log's place.
bool compact() {
  const int32 file = open(new_name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const uint64 made = last < 32 ? last : 32;
  bool good = write(file, &made, sizeof made) == sizeof made;
  for (uint64 number = last - made + 1; number <= last; ++number) good &= write_record(file, number);
  return close(file) == 0 && good && rename(new_name, log_name) == 0;
}

/// Reads and checks the whole log and cuts a record off that is not whole.
bool load_log(bool& torn) {
  const int32 file = open(log_name, O_RDWR);
  struct stat status;
  if (fstat(file, &status) != 0 || status.st_size < 8) return broken("the log is shorter than its header");
  const uint64 size = static_cast<uint64>(status.st_size) - 8, count = size / sizeof(Record);
  const auto* const log = static_cast<const uint64*>(mmap(nullptr, size + 8, PROT_READ, MAP_SHARED, file, 0));
  if (*log > count) return broken("a record of a file that was renamed into place");
  const auto* const records = reinterpret_cast<const Record*>(log + 1);
  for (uint64 i = 0; i * sizeof(Record) < size; ++i) {
    const Record expected(records->number + i);
    const uint64 rest = size - i * sizeof(Record), part = rest < sizeof expected ? rest : sizeof expected;
    if (memcmp(records + i, &expected, part) != 0) return broken("the log holds what was not written there");
  }
  if (count > 0) last = records->number + count - 1;
  torn = size % sizeof(Record) != 0;
  munmap(const_cast<uint64*>(log), size + 8);
  if (torn && ftruncate(file, static_cast<int64>(8 + count * sizeof(Record))) != 0) return broken("ftruncate");
  return close(file) == 0;
}

}  // namespace

/// Opens the store, checks all that is in it and writes until somebody ends the process.
extern "C" int64 write_until_killed() {
  mkdir(folder, 0755);
  const bool unfinished = access(new_name, 0) == 0;
  if (unfinished && unlink(new_name) != 0) return broken("an unfinished file cannot be removed");
  if (access(log_name, 0) != 0 && !compact()) return broken("the first log cannot be made");
  bool torn;
  if (!load_log(torn)) return 1;
  for (tell("opened %llu %llu %llu\n", last, torn, unfinished);; tell("kept %llu\n", last)) {
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
