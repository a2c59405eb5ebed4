// A log-structured store as games keep their saves in. What is written goes to the end of one file; now and then the
// newest record of each key goes into a new file, which takes the place of the old one by being renamed over it.
// store_test kills the process while it writes and starts it again.
//
//   log:  Header | records that the file was made with, `made_size` bytes with the header | records appended since
//
// Told to the standard output, line by line:
//
//   started
//   opened LAST TORN UNFINISHED    sequence number of the last record; what of an interrupted process was thrown away:
//                                  1 for a record that is not whole, 1 for a new file that was not renamed
//   kept LAST                      all records up to this one are in the file
//   broken: WHAT                   the end: something that was kept is not there, or something half-written is
#include "guest_test.h"

extern "C" {
struct Directory;
struct Dirent {
  uint64 inode, seek_offset;
  unsigned short record_length, name_length;
  uint8 type;
  char name[1024];
};
struct Stat {
  uint64 before_size[12];
  int64 size;
  uint64 after_size[5];
};
static_assert(sizeof(Stat) == 144);

int32 open(const char*, int32, ...);
int32 close(int32);
int64 write(int32, const void*, uint64);
int32 ftruncate(int32, int64);
int32 fstat(int32, Stat*) asm("_fstat$INODE64");
int32 mkdir(const char*, unsigned short);
int32 unlink(const char*);
int32 rename(const char*, const char*);
Directory* opendir(const char*) asm("_opendir$INODE64");
Dirent* readdir(Directory*) asm("_readdir$INODE64");
int32 closedir(Directory*);
uint8* mmap(void*, uint64, int32, int32, int32, int64);
int32 munmap(void*, uint64);
int32 strcmp(const char*, const char*);
int32 memcmp(const void*, const void*, uint64);
void* memcpy(void*, const void*, uint64);
int32 snprintf(char*, uint64, const char*, ...);
}

namespace {

constexpr int32 write_only = 1, read_write = 2, append = 0x8, create = 0x200, truncate = 0x400;
constexpr int32 prot_read = 1, map_shared = 1;
constexpr char folder[] = "store.tmp", log_name[] = "store.tmp/log", new_name[] = "store.tmp/new";

constexpr uint64 magic = 0x65726f7473;
constexpr uint64 keys = 32;  // a record's key is its sequence number modulo this
constexpr uint64 longest_payload = 500;

struct Header {
  uint64 magic;
  uint64 last;       // sequence number of the newest record that the file was made with
  uint64 made_size;  // bytes
  uint64 check;
};
struct Record {
  uint64 sequence;
  uint64 size;  // of the bytes that follow
  uint64 check;
};

uint64 checksum(const void* bytes, uint64 size, uint64 sum = 0xcbf29ce484222325) {
  for (uint64 i = 0; i < size; ++i) sum = (sum ^ static_cast<const uint8*>(bytes)[i]) * 0x100000001b3;
  return sum;
}
uint64 check_of(const Header& header) { return checksum(&header, sizeof header - sizeof header.check); }
uint64 check_of(const Record& record, const uint8* payload) {
  return checksum(payload, record.size, checksum(&record, sizeof record - sizeof record.check));
}

/// Each sequence number has bytes of its own, so that a record that came out of nowhere shows.
uint64 make_payload(uint64 sequence, uint8* bytes) {
  const uint64 size = 1 + sequence * 2654435761 % longest_payload;
  for (uint64 i = 0; i < size; ++i) bytes[i] = static_cast<uint8>(sequence * 31 + (sequence >> 8) + i * 7);
  return size;
}

void tell(const char* line, uint64 a = 0, uint64 b = 0, uint64 c = 0) {
  char text[100];
  write(1, text, static_cast<uint64>(snprintf(text, sizeof text, line, a, b, c)));
}

bool broken(const char* what) {
  tell("broken: %s\n", reinterpret_cast<uint64>(what));
  return false;
}

uint64 last = 0;  // sequence number of the newest record

/// The newest sequence number of a key, 0 while it has none.
uint64 newest_of(uint64 key, uint64 of_all) {
  return of_all >= key + (key == 0 ? keys : 0) ? of_all - (of_all - key) % keys : 0;
}

/// In pieces, so that a process that is killed leaves one behind.
bool write_record(int32 file, uint64 sequence) {
  uint8 payload[longest_payload];
  Record record{sequence, make_payload(sequence, payload), 0};
  record.check = check_of(record, payload);
  const int64 half = static_cast<int64>(record.size / 2), rest = static_cast<int64>(record.size) - half;
  return write(file, &record, sizeof record) == sizeof record && write(file, payload, half) == half &&
         write(file, payload + half, rest) == rest;
}

/// Puts a file with the newest record of each key in the log's place.
bool compact() {
  const int32 file = open(new_name, write_only | create | truncate, 0644);
  Header header{magic, last, sizeof header, 0};
  uint8 payload[longest_payload];
  for (uint64 key = 0; key < keys; ++key) {
    const uint64 sequence = newest_of(key, last);
    if (sequence != 0) header.made_size += sizeof(Record) + make_payload(sequence, payload);
  }
  header.check = check_of(header);
  bool written = write(file, &header, sizeof header) == sizeof header;
  for (uint64 key = 0; key < keys; ++key) {
    const uint64 sequence = newest_of(key, last);
    written = written && (sequence == 0 || write_record(file, sequence));
  }
  return close(file) == 0 && written && rename(new_name, log_name) == 0;
}

/// Bytes of the log that are whole, after checking each record; 0 when it is broken.
uint64 read_log(const uint8* log, uint64 size) {
  Header header;
  if (size < sizeof header) return broken("the log is shorter than its header");
  memcpy(&header, log, sizeof header);
  if (header.magic != magic || header.check != check_of(header)) return broken("the log's header");
  uint64 found[keys] = {};
  uint64 at = sizeof header;
  last = header.last;
  for (Record record; size - at >= sizeof record; at += sizeof record + record.size) {
    memcpy(&record, log + at, sizeof record);
    if (record.size > longest_payload || record.size > size - at - sizeof record) break;
    const uint8* const payload = log + at + sizeof record;
    if (record.check != check_of(record, payload)) break;
    uint8 expected[longest_payload];
    if (make_payload(record.sequence, expected) != record.size || memcmp(payload, expected, record.size) != 0) {
      return broken("a record holds what was never written");
    }
    if (at >= header.made_size && record.sequence != ++last) return broken("a record is missing");
    found[record.sequence % keys] = record.sequence;
  }
  if (at < header.made_size) return broken("a record of a file that was renamed into place");
  if (size - at >= sizeof(Record) + longest_payload) return broken("more than one record is not whole");
  for (uint64 key = 0; key < keys; ++key) {
    if (found[key] != newest_of(key, last)) return broken("a key does not have its newest record");
  }
  return at;
}

/// Reads the whole log and cuts a record off that is not whole.
bool load_log(bool& torn) {
  const int32 file = open(log_name, read_write);
  Stat status;
  if (fstat(file, &status) != 0) return broken("fstat");
  const auto size = static_cast<uint64>(status.size);
  uint8* const log = mmap(nullptr, size, prot_read, map_shared, file, 0);
  if (log == reinterpret_cast<uint8*>(-1l)) return broken("mmap");
  const uint64 whole = read_log(log, size);
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
  Directory* const directory = opendir(folder);
  if (!directory) return broken("the directory cannot be read");
  while (const Dirent* entry = readdir(directory)) {
    if (strcmp(entry->name, "log") == 0) {
      log_exists = true;
    } else if (strcmp(entry->name, "new") == 0) {
      unfinished = true;
    } else if (entry->name[0] != '.') {
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
    const int32 file = open(log_name, write_only | append);
    for (int32 i = 0; i < 100; ++i) {
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
