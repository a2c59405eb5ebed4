// A log-structured store as games keep their saves in. What is written goes to the end of one file; now and then the
// newest records go into a new file, which takes the place of the old one by being renamed over it.
// store_test kills the process while it writes and starts it again.
//
//   log:  Header | records that the file was made with, `made_size` bytes with the header | records appended since,
//         all with sequence numbers one after the other
//
// Told to the standard output, line by line:
//
//   started
//   opened LAST TORN UNFINISHED    sequence number of the last record; what of an interrupted process was thrown away:
//                                  1 for a record that is not whole, 1 for a new file that was not renamed
//   kept LAST                      all records up to this one are in the file
//   broken: WHAT                   the end: something that was kept is not there, or something half-written is
#include "darwin.h"

namespace {

constexpr char folder[] = "store.tmp", log_name[] = "store.tmp/log", new_name[] = "store.tmp/new";

constexpr uint64 magic = 0x65726f7473;
constexpr uint64 newest = 32;  // records that a new file is made with
constexpr uint64 longest_payload = 500;

struct Header {
  uint64 magic;
  uint64 first;      // sequence number of its first record
  uint64 made_size;  // bytes
};

/// Each sequence number has bytes of its own, so that whatever is not where it was written shows.
struct Record {
  uint64 sequence;
  uint64 size;  // of the bytes that follow
  uint8 payload[longest_payload];

  explicit Record(uint64 sequence) : sequence(sequence), size(1 + sequence * 2654435761 % longest_payload) {
    for (uint64 i = 0; i < size; ++i) payload[i] = static_cast<uint8>(sequence * 31 + (sequence >> 8) + i * 7);
  }
  uint64 whole_size() const { return sizeof sequence + sizeof size + size; }
};

void tell(const char* line, uint64 a = 0, uint64 b = 0, uint64 c = 0) {
  char text[100];
  write(1, text, static_cast<uint64>(snprintf(text, sizeof text, line, a, b, c)));
}

bool broken(const char* what) {
  tell("broken: %s\n", reinterpret_cast<uint64>(what));
  return false;
}

uint64 last = 0;  // sequence number of the newest record

/// In small pieces, so that a process that is killed leaves some of them behind.
bool write_record(int32 file, uint64 sequence) {
  constexpr uint64 piece = 16;
  const Record record(sequence);
  const uint64 whole = record.whole_size();
  for (uint64 at = 0; at < whole; at += piece) {
    const uint64 size = whole - at < piece ? whole - at : piece;
    if (write(file, reinterpret_cast<const uint8*>(&record) + at, size) != static_cast<int64>(size)) return false;
  }
  return true;
}

/// Puts a file with the newest records in the log's place.
bool compact() {
  const int32 file = open(new_name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  Header header{magic, last < newest ? 1 : last - newest + 1, sizeof header};
  for (uint64 i = header.first; i <= last; ++i) header.made_size += Record(i).whole_size();
  bool written = write(file, &header, sizeof header) == sizeof header;
  for (uint64 i = header.first; i <= last; ++i) written = written && write_record(file, i);
  return close(file) == 0 && written && rename(new_name, log_name) == 0;
}

/// Bytes of the log that are whole, after checking each record; 0 when it is broken.
uint64 read_log(const uint8* log, uint64 size) {
  Header header;
  if (size < sizeof header) return broken("the log is shorter than its header");
  memcpy(&header, log, sizeof header);
  if (header.magic != magic) return broken("the log's header");
  uint64 at = sizeof header;
  for (last = header.first - 1; at < size; ++last) {
    const Record next(last + 1);
    const uint64 whole = next.whole_size(), found = whole < size - at ? whole : size - at;
    if (memcmp(log + at, &next, found) != 0) return broken("the log holds what was not written there");
    if (found < whole) break;
    at += whole;
  }
  return at < header.made_size ? broken("a record of a file that was renamed into place") : at;
}

/// Reads the whole log and cuts a record off that is not whole.
bool load_log(bool& torn) {
  const int32 file = open(log_name, O_RDWR);
  struct stat status;
  if (fstat(file, &status) != 0) return broken("fstat");
  const auto size = static_cast<uint64>(status.st_size);
  void* const log = mmap(nullptr, size, PROT_READ, MAP_SHARED, file, 0);
  if (log == MAP_FAILED) return broken("mmap");
  const uint64 whole = read_log(static_cast<const uint8*>(log), size);
  munmap(log, size);
  if (whole == 0) return false;
  torn = whole < size;
  if (torn && ftruncate(file, static_cast<int64>(whole)) != 0) return broken("ftruncate");
  return close(file) == 0;
}

bool open_store() {
  tell("started\n");
  mkdir(folder, 0755);
  bool log_exists = false, unfinished = false;
  DIR* const directory = opendir(folder);
  if (!directory) return broken("the directory cannot be read");
  while (const dirent* entry = readdir(directory)) {
    if (strcmp(entry->d_name, "log") == 0) {
      log_exists = true;
    } else if (strcmp(entry->d_name, "new") == 0) {
      unfinished = true;
    } else if (entry->d_name[0] != '.') {
      return broken("a file that nobody made");
    }
  }
  closedir(directory);
  if (unfinished && unlink(new_name) != 0) return broken("an unfinished file cannot be removed");
  if (!log_exists && !compact()) return broken("the first log cannot be made");

  bool torn;
  if (!load_log(torn)) return false;
  tell("opened %llu %llu %llu\n", last, torn, unfinished);
  return true;
}

}  // namespace

extern "C" {

/// Opens the store and checks all that is in it.
int64 open_and_check() { return open_store() ? 0 : 1; }

/// The same, and then writes until somebody ends the process.
int64 write_until_killed() {
  if (!open_store()) return 1;
  for (;;) {
    const int32 file = open(log_name, O_WRONLY | O_APPEND);
    for (int32 i = 0; i < 40; ++i) {
      if (!write_record(file, last + 1)) return broken("a record cannot be written"), 1;
      ++last;
      if (last % 8 == 0) tell("kept %llu\n", last);
    }
    close(file);
    bool torn;
    if (!load_log(torn)) return 1;
    if (torn) return broken("a record is not whole although it was written"), 1;
    if (!compact()) return broken("the log cannot be replaced"), 1;
    tell("kept %llu\n", last);
  }
}
}
