#include "cxx/compact_unwind.h"

#include <algorithm>

#include "support/byte_reader.h"

namespace vlm {
namespace {

struct UnwindInfoSectionHeader {
  std::uint32_t version;
  std::uint32_t commonEncodingsArraySectionOffset;
  std::uint32_t commonEncodingsArrayCount;
  std::uint32_t personalityArraySectionOffset;
  std::uint32_t personalityArrayCount;
  std::uint32_t indexSectionOffset;
  std::uint32_t indexCount;
};
static_assert(sizeof(UnwindInfoSectionHeader) == 28);

struct LsdaEntry {
  std::uint32_t functionOffset;
  std::uint32_t lsdaOffset;
};
static_assert(sizeof(LsdaEntry) == 8);

enum SecondLevelKind : std::uint32_t { UNWIND_SECOND_LEVEL_REGULAR = 2, UNWIND_SECOND_LEVEL_COMPRESSED = 3 };

struct RegularPage {
  std::uint32_t kind;
  std::uint16_t entryPageOffset;
  std::uint16_t entryCount;
};
static_assert(sizeof(RegularPage) == 8);

struct RegularEntry {
  std::uint32_t functionOffset;
  std::uint32_t encoding;
};
static_assert(sizeof(RegularEntry) == 8);

struct CompressedPage {
  std::uint32_t kind;
  std::uint16_t entryPageOffset;
  std::uint16_t entryCount;
  std::uint16_t encodingsPageOffset;
  std::uint16_t encodingsCount;
};
static_assert(sizeof(CompressedPage) == 12);

constexpr std::uint32_t compressed_function(std::uint32_t entry) { return entry & 0xFFFFFF; }
constexpr std::uint32_t compressed_encoding(std::uint32_t entry) { return entry >> 24; }

constexpr std::uint32_t UNWIND_HAS_LSDA = 0x40000000;
constexpr std::uint32_t personality_index(std::uint32_t encoding) { return encoding >> 28 & 3; }

/// The last of `count` ascending keys that is not above `target`.
std::optional<std::uint32_t> last_not_above(std::uint32_t count, std::uint64_t target, auto key) {
  std::uint32_t low = 0, high = count;
  while (low < high) {
    const std::uint32_t middle = low + (high - low) / 2;
    if (key(middle) <= target) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  if (low == 0) return std::nullopt;
  return low - 1;
}

}  // namespace

template <class T>
class UnwindSection::Table {
 public:
  Table(std::span<const std::byte> bytes) : bytes_(bytes) {}
  std::uint32_t size() const { return static_cast<std::uint32_t>(bytes_.size() / sizeof(T)); }
  T operator[](std::uint32_t i) const { return ByteReader(bytes_, std::size_t{i} * sizeof(T)).read<T>(); }

 private:
  std::span<const std::byte> bytes_;
};

template <class T>
Result<UnwindSection::Table<T>> UnwindSection::table(std::uint64_t offset, std::uint64_t count,
                                                     const char* what) const {
  if (!range_fits(offset, count * sizeof(T), section_.size())) {
    return fault("__unwind_info of %zu bytes has no room for its %s: %llu entries at 0x%llx", section_.size(), what,
                 static_cast<unsigned long long>(count), static_cast<unsigned long long>(offset));
  }
  return Table<T>(section_.subspan(offset, count * sizeof(T)));
}

/// A second-level page: functions in ascending order. One of unknown kind has none.
class UnwindSection::Page {
 public:
  Page(const UnwindSection& section, std::uint32_t offset, std::uint32_t first_function)
      : section_(section), offset_(offset), first_function_(first_function) {}

  std::uint32_t size() const { return regular_.size() + compressed_.size(); }

  std::uint64_t function(std::uint32_t i) const {
    if (regular_.size() != 0) return regular_[i].functionOffset;
    return std::uint64_t{first_function_} + compressed_function(compressed_[i]);
  }

  Result<UnwindEntry> entry(std::uint32_t i) const {
    if (regular_.size() != 0) return UnwindEntry{regular_[i].functionOffset, regular_[i].encoding, 0, 0};
    std::uint32_t number = compressed_encoding(compressed_[i]);
    const std::uint32_t common_count = section_.common_encoding_count_;
    const bool common = number < common_count;
    if (!common) number -= common_count;
    const auto encodings =
        common ? section_.table<std::uint32_t>(section_.common_encodings_, common_count, "common encodings")
               : section_.table<std::uint32_t>(encodings_, encoding_count_, "encodings of a page");
    if (!encodings) return std::unexpected(encodings.error());
    if (number >= encodings->size()) {
      return fault("__unwind_info names encoding %u of a page at 0x%x that has %u", number, offset_, encodings->size());
    }
    return UnwindEntry{static_cast<std::uint32_t>(function(i)), (*encodings)[number], 0, 0};
  }

 private:
  friend class UnwindSection;

  const UnwindSection& section_;
  std::uint32_t offset_;
  std::uint32_t first_function_;
  Table<RegularEntry> regular_{{}};      // one of
  Table<std::uint32_t> compressed_{{}};  // the two
  std::uint64_t encodings_ = 0;
  std::uint32_t encoding_count_ = 0;
};

Result<UnwindSection::Page> UnwindSection::page(const UnwindIndexEntry& place) const {
  const std::uint32_t offset = place.secondLevelPagesSectionOffset;
  Page page(*this, offset, place.functionOffset);
  ByteReader in(section_, offset);
  switch (ByteReader(in).read<std::uint32_t>()) {
    case UNWIND_SECOND_LEVEL_REGULAR: {
      const auto header = in.read<RegularPage>();
      const auto entries =
          table<RegularEntry>(std::uint64_t{offset} + header.entryPageOffset, header.entryCount, "regular page");
      if (!entries) return std::unexpected(entries.error());
      page.regular_ = *entries;
      return page;
    }
    case UNWIND_SECOND_LEVEL_COMPRESSED: {
      const auto header = in.read<CompressedPage>();
      const auto entries =
          table<std::uint32_t>(std::uint64_t{offset} + header.entryPageOffset, header.entryCount, "compressed page");
      if (!entries) return std::unexpected(entries.error());
      page.compressed_ = *entries;
      page.encodings_ = std::uint64_t{offset} + header.encodingsPageOffset;
      page.encoding_count_ = header.encodingsCount;
      return page;
    }
    default: return page;
  }
}

Result<UnwindSection> UnwindSection::open(std::span<const std::byte> bytes) {
  UnwindSection section;
  section.section_ = bytes;
  ByteReader in(bytes);
  const auto header = in.read<UnwindInfoSectionHeader>();
  if (!in.ok()) return fault("__unwind_info of %zu bytes is shorter than its header", bytes.size());
  section.common_encodings_ = header.commonEncodingsArraySectionOffset;
  section.common_encoding_count_ = header.commonEncodingsArrayCount;
  section.personalities_ = header.personalityArraySectionOffset;
  section.personality_count_ = header.personalityArrayCount;
  section.index_ = header.indexSectionOffset;
  section.index_count_ = header.indexCount;
  const auto encodings =
      section.table<std::uint32_t>(section.common_encodings_, section.common_encoding_count_, "common encodings");
  if (!encodings) return std::unexpected(encodings.error());
  const auto personalities =
      section.table<std::uint32_t>(section.personalities_, section.personality_count_, "personalities");
  if (!personalities) return std::unexpected(personalities.error());
  const auto index = section.table<UnwindIndexEntry>(section.index_, section.index_count_, "index");
  if (!index) return std::unexpected(index.error());
  return section;
}

Result<std::optional<UnwindEntry>> UnwindSection::find(std::uint32_t target) const {
  if (index_count_ == 0) return std::nullopt;
  const auto index = table<UnwindIndexEntry>(index_, index_count_, "index");
  if (!index) return std::unexpected(index.error());
  // The sentinel is no candidate, and an address below the first page is left to that page to turn down.
  const UnwindIndexEntry first = (*index)[last_not_above(index_count_ - 1, target, [&](std::uint32_t i) {
                                            return (*index)[i].functionOffset;
                                          }).value_or(0)];
  if (first.secondLevelPagesSectionOffset == 0) return std::nullopt;

  const auto functions = page(first);
  if (!functions) return std::unexpected(functions.error());
  const auto at = last_not_above(functions->size(), target, [&](std::uint32_t i) { return functions->function(i); });
  if (!at) return std::nullopt;
  auto found = functions->entry(*at);
  if (!found) return std::unexpected(found.error());
  UnwindEntry& entry = *found;
  if ((entry.encoding & UNWIND_HAS_LSDA) != 0) {
    const auto lsda = find_lsda(first.lsdaIndexArraySectionOffset, entry.function);
    if (!lsda) return std::unexpected(lsda.error());
    entry.lsda = *lsda;
  }
  if (const std::uint32_t number = personality_index(entry.encoding); number != 0) {
    const auto personalities = table<std::uint32_t>(personalities_, personality_count_, "personalities");
    if (!personalities) return std::unexpected(personalities.error());
    if (number <= personalities->size()) entry.personality = (*personalities)[number - 1];
  }
  return found;
}

Result<void> UnwindSection::for_each_function(const std::function<void(const UnwindEntry&)>& visit) const {
  if (index_count_ == 0) return {};
  const auto index = table<UnwindIndexEntry>(index_, index_count_, "index");
  if (!index) return std::unexpected(index.error());
  // No function takes fewer bytes, so only pages that overlap have more.
  std::uint64_t left = section_.size() / sizeof(std::uint32_t);
  for (std::uint32_t i = 0; i + 1 < index_count_; ++i) {
    if ((*index)[i].secondLevelPagesSectionOffset == 0) continue;
    const auto functions = page((*index)[i]);
    if (!functions) return std::unexpected(functions.error());
    if (functions->size() > left) return fault("__unwind_info has pages that overlap: entry %u of its index", i);
    left -= functions->size();
    for (std::uint32_t at = 0; at < functions->size(); ++at) {
      const auto entry = functions->entry(at);
      if (!entry) return std::unexpected(entry.error());
      visit(*entry);
    }
  }
  return {};
}

Result<std::uint32_t> UnwindSection::find_lsda(std::uint32_t begin, std::uint32_t function) const {
  const auto sentinel =
      table<UnwindIndexEntry>(index_ + sizeof(UnwindIndexEntry) * std::uint64_t{index_count_ - 1}, 1, "index");
  if (!sentinel) return std::unexpected(sentinel.error());
  const std::uint32_t end = (*sentinel)[0].lsdaIndexArraySectionOffset;
  if (end <= begin) return 0;
  const auto entries = table<LsdaEntry>(begin, (end - begin) / sizeof(LsdaEntry), "LSDA index");
  if (!entries) return std::unexpected(entries.error());
  const auto function_of = [&](std::uint32_t i) { return (*entries)[i].functionOffset; };
  const auto at = last_not_above(entries->size(), function, function_of);
  if (!at || (*entries)[*at].functionOffset != function) return 0;
  return (*entries)[*at].lsdaOffset;
}

// ---- Encodings
// -------------------------------------------------------------------------------------------------------

namespace {

constexpr unsigned rbp_number = 6;

/// From UNWIND_X86_64_REG_*; 0 is none.
constexpr UnwindRegister register_of_number[] = {in_rax, in_rbx, in_r12, in_r13, in_r14, in_r15, in_rbp};

/// rbp's frame: five places above a base below rbp, each with a register or none. rbp itself is always saved.
std::optional<FrameLayout> decode_rbp_frame(std::uint32_t encoding) {
  FrameLayout layout{.cfa_offset = 16, .below_cfa = {}, .deepest = 0, .from_rbp = true};
  layout.save(in_rbp, 16);
  const unsigned base = 16 + 8 * (encoding >> 16 & 0xFF);
  for (unsigned place = 0; place < 5; ++place) {
    const unsigned number = encoding >> (3 * place) & 7;
    if (number == 0 || number >= rbp_number) continue;
    if (base < 24 + 8 * place) return std::nullopt;  // it would lie over rbp or the return address
    layout.save(register_of_number[number], base - 8 * place);
  }
  return layout;
}

/// Which registers were pushed, the last one first: a permutation of `count` out of six, written as one number whose
/// digits choose among the registers that are still left. False for a number that is no permutation.
bool decode_permutation(unsigned count, unsigned permutation, unsigned (&numbers)[6]) {
  static constexpr unsigned divisors[7][6] = {
      {}, {1}, {5, 1}, {20, 4, 1}, {60, 12, 3, 1}, {120, 24, 6, 2, 1}, {120, 24, 6, 2, 1, 0}};
  bool used[7] = {};
  for (unsigned i = 0; i < count; ++i) {
    const unsigned divisor = divisors[count][i];
    unsigned digit = divisor == 0 ? 0 : permutation / divisor;
    permutation -= digit * divisor;
    unsigned number = 1;
    for (; number <= 6; ++number) {
      if (!used[number] && digit-- == 0) break;
    }
    if (number > 6) return false;
    used[number] = true;
    numbers[i] = number;
  }
  return true;
}

std::optional<FrameLayout> decode_frameless(std::uint32_t encoding, std::span<const std::byte> code, bool indirect) {
  std::uint64_t size = 8 * (encoding >> 16 & 0xFF);
  if (indirect) {
    ByteReader in(code, std::min<std::size_t>(encoding >> 16 & 0xFF, code.size()));
    size = std::uint64_t{in.read<std::uint32_t>()} + 8 * (encoding >> 13 & 7);
    if (!in.ok()) return std::nullopt;
  }
  const unsigned count = encoding >> 10 & 7;
  unsigned numbers[6];
  if (count > 6 || !decode_permutation(count, encoding & 0x3FF, numbers)) return std::nullopt;
  if (size < 8 * (count + 1) || size > 0xFFFFFFFF) return std::nullopt;  // less than what it says to hold
  FrameLayout layout{.cfa_offset = static_cast<std::uint32_t>(size), .below_cfa = {}, .deepest = 0, .from_rbp = false};
  for (unsigned i = 0; i < count; ++i) layout.save(register_of_number[numbers[i]], 8 + 8 * (count - i));
  return layout;
}

}  // namespace

std::optional<FrameLayout> decode_compact(std::uint32_t encoding, std::span<const std::byte> code) {
  switch (unwind_mode(encoding)) {
    case UNWIND_X86_64_MODE_RBP_FRAME: return decode_rbp_frame(encoding);
    case UNWIND_X86_64_MODE_STACK_IMMD: return decode_frameless(encoding, code, false);
    case UNWIND_X86_64_MODE_STACK_IND: return decode_frameless(encoding, code, true);
    default: return std::nullopt;
  }
}

}  // namespace vlm
