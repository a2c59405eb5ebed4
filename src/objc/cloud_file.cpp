#include "objc/cloud_file.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <unordered_map>
#include <utility>

#include "abi/format_float.h"
#include "support/take_until.h"

namespace vlm {
namespace {

constexpr char type_text = 's', type_integer = 'i', type_double = 'd';
constexpr char separator = '\t';

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

std::vector<CloudEntry> read_cloud_file(std::string_view bytes) {
  std::vector<CloudEntry> entries;
  std::unordered_map<std::string, std::size_t> places;  // of the entries, by their keys
  bytes = bytes.substr(0, bytes.find('\0'));
  while (!bytes.empty()) {
    std::string_view line = take_until(bytes, '\n');
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::size_t first_tab = line.find(separator);
    if (first_tab == line.npos || line.find(separator, first_tab + 1) == line.npos) continue;
    const std::string_view type = take_until(line, separator);
    const std::string key = unescape(take_until(line, separator));
    auto value = value_of(type.empty() ? type_integer : type.front(), unescape(line));
    const auto [place, is_new] = places.try_emplace(key, entries.size());
    if (is_new) {
      entries.push_back({key, std::move(value)});
    } else {
      entries[place->second].value = std::move(value);
    }
  }
  return entries;
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
