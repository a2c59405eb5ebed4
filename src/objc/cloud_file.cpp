#include "objc/cloud_file.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <unordered_map>
#include <utility>

#include "abi/format_float.h"
#include "support/hash.h"
#include "support/take_until.h"

namespace vlm {
namespace {

constexpr char type_text = 's', type_integer = 'i', type_double = 'd';
constexpr char separator = '\t';
constexpr std::string_view proof_mark = "#whole ";

/// FNV-1a: says whether bytes and number are those that were written, on a disk that means no harm.
std::uint64_t hash_of(std::string_view bytes, std::uint64_t number) { return fnv1a(bytes, fnv1a_basis ^ number); }

std::string proof_of(std::string_view bytes, std::uint64_t save_number, bool apart) {
  char line[64];
  const int length = std::snprintf(line, sizeof line, "%s%llu %016llx%s\n", proof_mark.data(),
                                   static_cast<unsigned long long>(save_number),
                                   static_cast<unsigned long long>(hash_of(bytes, save_number)), apart ? " apart" : "");
  return {line, static_cast<std::size_t>(length)};
}

/// Whether the file ends in the line that proves it.
void check_proof(std::string_view bytes, CloudFile& file) {
  if (!bytes.ends_with('\n')) return;
  const std::size_t start = bytes.rfind('\n', bytes.size() - 2) + 1;  // of the last line; 0 when it is the only one
  const std::string_view line = bytes.substr(start);
  if (!line.starts_with(proof_mark)) return;
  std::uint64_t number = 0;
  std::from_chars(line.data() + proof_mark.size(), line.data() + line.size(), number);
  file.apart = line.ends_with(" apart\n");
  file.whole = line == proof_of(bytes.substr(0, start), number, file.apart);
  if (file.whole) file.save_number = number;
}

std::string unescape(std::string_view escaped) {
  std::string text;
  text.reserve(escaped.size());
  for (std::size_t i = 0; i < escaped.size(); ++i) {
    char c = escaped[i];
    if (c == '\\' && i + 1 < escaped.size()) {
      c = escaped[++i];
      if (c == 'n') c = '\n';
      if (c == 't') c = '\t';
    }
    text += c;
  }
  return text;
}

decltype(CloudEntry::value) value_of(char type, std::string text) {
  if (type == type_text) return text;
  if (type == type_double) return std::strtod(text.c_str(), nullptr);
  return std::int64_t{std::strtoll(text.c_str(), nullptr, 10)};
}

}  // namespace

CloudFile read_cloud_file(std::string_view bytes) {
  CloudFile file;
  check_proof(bytes, file);
  std::unordered_map<std::string, std::size_t> places;  // of the entries, by their keys
  const std::size_t end = bytes.find('\0');
  file.damaged = bytes.empty() || end != bytes.npos;
  bytes = bytes.substr(0, end);
  while (!bytes.empty()) {
    std::string_view line = take_until(bytes, '\n');
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::size_t first_tab = line.find(separator);
    if (first_tab == line.npos || line.find(separator, first_tab + 1) == line.npos) {
      file.damaged |= !line.empty() && !line.starts_with(proof_mark);
      continue;
    }
    const std::string_view type = take_until(line, separator);
    const std::string key = unescape(take_until(line, separator));
    auto value = value_of(type.empty() ? type_integer : type.front(), unescape(line));
    const auto [place, is_new] = places.try_emplace(key, file.entries.size());
    if (is_new) {
      file.entries.push_back({key, std::move(value)});
    } else {
      file.entries[place->second].value = std::move(value);
    }
  }
  return file;
}

void CloudFileWriter::add_text(std::string_view key, std::string_view text) {
  start_line(type_text, key);
  append_escaped(text);
  bytes_ += '\n';
}

void CloudFileWriter::add_integer(std::string_view key, std::int64_t value) {
  start_line(type_integer, key);
  char digits[24];
  bytes_.append(digits, std::to_chars(digits, std::end(digits), value).ptr);
  bytes_ += '\n';
}

/// As game code's printf writes "%.17g". The host's writes infinities and exponents in its own way.
void CloudFileWriter::add_double(std::string_view key, double value) {
  start_line(type_double, key);
  if (std::isnan(value)) {
    bytes_ += "nan";
  } else {
    if (std::signbit(value)) bytes_ += '-';
    if (std::isinf(value)) {
      bytes_ += "inf";
    } else {
      FloatText text;
      render_float(text, std::fabs(value), 'g', 17, false);
      bytes_.append(text.body, text.size).append(text.zeros, '0').append(text.exponent, text.exponent_size);
    }
  }
  bytes_ += '\n';
}

const std::string& CloudFileWriter::finish(std::uint64_t save_number, bool apart) {
  bytes_ += proof_of(bytes_, save_number, apart);
  return bytes_;
}

void CloudFileWriter::start_line(char type, std::string_view key) {
  bytes_ += type;
  bytes_ += separator;
  append_escaped(key);
  bytes_ += separator;
}

void CloudFileWriter::append_escaped(std::string_view text) {
  for (;;) {
    const std::size_t plain = std::min(text.find_first_of("\\\n\t"), text.size());
    bytes_.append(text, 0, plain);
    if (plain == text.size()) return;
    const char c = text[plain];
    bytes_ += '\\';
    bytes_ += c == '\n' ? 'n' : c == '\t' ? 't' : '\\';
    text.remove_prefix(plain + 1);
  }
}

}  // namespace vlm
