// Compact unwind information: which function an address belongs to, and how its frame is taken off the stack.
// The format is that of <mach-o/compact_unwind_encoding.h>; fields keep its names.
//
//   section header -> first-level index   functionOffset, page, LSDA index          one entry per page, then a sentinel
//                     second-level page   functionOffset -> encoding                regular, or compressed
//                     LSDA index          functionOffset -> lsdaOffset
//
// Function, LSDA and personality offsets count from the image's base; the others from the section's or page's start.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include "support/result.h"

namespace vlm {

/// What the section says about one function. Offsets from the image's base; 0 where there is none.
struct UnwindEntry {
  std::uint32_t function;
  std::uint32_t encoding;
  std::uint32_t lsda;
  std::uint32_t personality;  // of the pointer to the routine
};

/// `unwind_info_section_header_index_entry`.
struct UnwindIndexEntry {
  std::uint32_t functionOffset;
  std::uint32_t secondLevelPagesSectionOffset;  // 0 in the entry that ends the index
  std::uint32_t lsdaIndexArraySectionOffset;
};
static_assert(sizeof(UnwindIndexEntry) == 12);

/// One image's __unwind_info section. A view: the bytes must outlive it.
class UnwindSection {
 public:
  /// Checks the header and the tables that it names.
  static Result<UnwindSection> open(std::span<const std::byte> section);

  /// The function that holds the byte at `target`, or nothing when the section knows none there.
  ///   errors  name the table that leaves the section
  Result<std::optional<UnwindEntry>> find(std::uint32_t target) const;

  /// Calls `visit` for each function, in the order of the section; LSDA and personality are not looked up.
  ///   errors  name the table that leaves the section; what lies before it was visited
  Result<void> for_each_function(const std::function<void(const UnwindEntry&)>& visit) const;

 private:
  /// Records in the section, read by memcpy: nothing there need be aligned.
  template <class T>
  class Table;

  template <class T>
  Result<Table<T>> table(std::uint64_t offset, std::uint64_t count, const char* what) const;
  class Page;
  Result<Page> page(const UnwindIndexEntry& place) const;
  Result<std::uint32_t> find_lsda(std::uint32_t begin, std::uint32_t function) const;

  std::span<const std::byte> section_;
  std::uint32_t common_encodings_ = 0, common_encoding_count_ = 0;
  std::uint32_t personalities_ = 0, personality_count_ = 0;
  std::uint32_t index_ = 0, index_count_ = 0;
};

/// How an encoding describes its frame: by rbp, by rsp and a size in the encoding or in the function's code, or
/// elsewhere.
enum UnwindMode : std::uint32_t {
  UNWIND_X86_64_MODE_RBP_FRAME = 1,
  UNWIND_X86_64_MODE_STACK_IMMD = 2,
  UNWIND_X86_64_MODE_STACK_IND = 3,
  UNWIND_X86_64_MODE_DWARF = 4,
};
constexpr std::uint32_t unwind_mode(std::uint32_t encoding) { return encoding >> 24 & 0xF; }

/// The registers that an unwinder follows; the order of the words of an UnwindContext.
enum UnwindRegister : std::uint8_t { in_rax, in_rdx, in_rbx, in_rbp, in_rsp, in_r12, in_r13, in_r14, in_r15, in_rip };

/// A frame ready to be taken off: where its canonical frame address lies (the caller's rsp after the return; the
/// return address is in the word below) and which words below that hold registers of the caller.
struct FrameLayout {
  std::uint32_t cfa_offset;     // from rbp or rsp, in bytes; 16 from rbp
  std::uint16_t below_cfa[10];  // by UnwindRegister: bytes down to its word; 0: it is not saved
  std::uint16_t deepest;        // the largest of them
  bool from_rbp;                // which is then saved in the word that it points at

  void save(UnwindRegister where, unsigned bytes) {
    below_cfa[where] = static_cast<std::uint16_t>(bytes);
    deepest = std::max(deepest, below_cfa[where]);
  }
};

/// The layout that an encoding describes, or nothing when it is none that describes a frame completely.
///   code  of the function, from its first byte: a frame too large for the encoding has its size there
std::optional<FrameLayout> decode_compact(std::uint32_t encoding, std::span<const std::byte> code);

}  // namespace vlm
