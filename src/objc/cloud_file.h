// The file that the cloud key-value store is kept in: one line for each entry, in the order of the store.
//
//   s<tab>player name<tab>Ann\tLee\n     a text, escaped as its key is
//   i<tab>best score<tab>42              a 64-bit integer
//   d<tab>volume<tab>0.75                a double, as "%.17g" writes it
//
//   #whole 17 4f0c61a2d2f2a1b7           the end: the number of this save, and a hash of all that stands before;
//                                       " apart" behind it where the store in its place could not be read
//
// In a key and in a text "\n" stands for a line feed, "\t" for a tab and "\\" for a backslash; every other byte stands
// for itself. So a text that ends in a carriage return loses it on the way: the reader takes it for a part of the
// line's end. The last line proves that nothing of the file is missing; to readers of entries alone it is none, and
// files that they wrote have none.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vlm {

struct CloudEntry {
  std::string key;  // without a NUL, as all texts here
  std::variant<std::string, std::int64_t, double> value;
};

struct CloudFile {
  std::vector<CloudEntry> entries;
  bool whole = false;             // ends in the line that proves it
  std::uint64_t save_number = 0;  // if it is whole: a file with a greater one is newer
  bool apart = false;             // if it is whole: it knows nothing of the store that lies beside it
  bool damaged = false;           // holds something that is not understood, or nothing at all
};

/// Reads any bytes; they end at their first NUL. Lines end with LF or CR LF, the last one with or without. A line with
/// fewer than two tabs is no entry. A first letter other than 's' and 'd' makes an integer, whatever is behind it; a
/// number ends where its text is none any more, and is 0 when it does not begin. Keys are unique: one that occurs again
/// has its first place and its last value.
CloudFile read_cloud_file(std::string_view bytes);

/// Writes a file from its first entry to its last. Keys and texts hold no NUL.
class CloudFileWriter {
 public:
  void add_text(std::string_view key, std::string_view text);
  void add_integer(std::string_view key, std::int64_t value);
  void add_double(std::string_view key, double value);

  /// Writes the last line. The bytes are the writer's.
  const std::string& finish(std::uint64_t save_number, bool apart = false);

 private:
  void start_line(char type, std::string_view key);
  void append_escaped(std::string_view text);

  std::string bytes_;
};

}  // namespace vlm
