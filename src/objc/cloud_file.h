// The file that the cloud key-value store is kept in: one line for each entry, in the order of the store.
//
//   s<tab>player name<tab>Ann\tLee\n     a text, escaped as its key is
//   i<tab>best score<tab>42              a 64-bit integer
//   d<tab>volume<tab>0.75                a double, as "%.17g" writes it
//
// In a key and in a text "\n" stands for a line feed, "\t" for a tab and "\\" for a backslash; every other byte stands
// for itself. So a text that ends in a carriage return loses it on the way: the reader takes it for a part of the
// line's end.
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

/// Reads any bytes; they end at their first NUL. Lines end with LF or CR LF, the last one with or without. A line with
/// fewer than two tabs is no entry. A first letter other than 's' and 'd' makes an integer, whatever is behind it; a
/// number ends where its text is none any more, and is 0 when it does not begin. Keys are unique: one that occurs again
/// has its first place and its last value.
std::vector<CloudEntry> read_cloud_file(std::string_view bytes);

/// Writes a file from its first entry to its last. Keys and texts hold no NUL.
class CloudFileWriter {
 public:
  void add_text(std::string_view key, std::string_view text);
  void add_integer(std::string_view key, std::int64_t value);
  void add_double(std::string_view key, double value);

  const std::string& bytes() const { return bytes_; }

 private:
  void start_line(char type, std::string_view key);
  void append_escaped(std::string_view text);

  std::string bytes_;
};

}  // namespace vlm
