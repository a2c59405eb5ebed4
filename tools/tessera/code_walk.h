// Decodes one piece of a function: first everything that something leads to, then what is left between.
//
//   f:      cmp   edi, 3            branches are followed, also the entries of jump tables; what lies behind a jump
//           ja    default           or return is looked at last, from where it begins
//           lea   rcx, [rip+table]  a name: the register holds the table's address
//           movsxd rax, [rcx+rdi*4] an entry of it: the distance of a place in code from the table
//           add   rax, rcx          now it is a jump table, wherever it lies
//           jmp   rax
//   ...
//   table:  .long case0-table, ...  data: never decoded
//
// What the linker names as data is never decoded. A table ends there where it does, where another begins, where code
// begins, where an entry leads out of the section, or into the middle of an instruction. One entry is followed at a
// time, and only when all that the entries before it lead to was decoded: what follows a table is mostly another one,
// which is named by then.
#pragma once

#include <Zydis/Zydis.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "macho/image.h"
#include "tessera/code_map.h"

namespace vlm::tessera {

/// An instruction that uses gs.
struct GsSite {
  std::uint64_t vmaddr;
  std::span<const std::byte> bytes;
  std::array<std::uint8_t, 2> before;  // sizes of the instructions in front of it, nearest first; 0: one begins here
};

/// Places in code that something leads to: a bit for each byte of code. Threads may add at the same time.
class TargetSet {
 public:
  explicit TargetSet(const CodeMap& map);

  /// True for a place in code that was not in the set before.
  bool add(std::uint64_t place);
  /// The first one from `begin` on and before `end`, or `end`.
  std::uint32_t next(std::uint32_t begin, std::uint32_t end) const;

 private:
  struct Part {
    CodeRange extent;
    std::unique_ptr<std::atomic<std::uint64_t>[]> words;
  };
  std::vector<Part> parts_;
};

/// A table that code reads entries of `width` bytes from: 4 or 8.
struct JumpTable {
  std::uint32_t begin;
  std::uint32_t width;

  auto operator<=>(const JumpTable&) const = default;
};

/// What walks have found, in the order of the ranges that were walked.
struct WalkResult {
  std::vector<GsSite> sites;
  std::vector<CodeRange> unread;          // could not be decoded, and are not padding
  std::vector<std::uint32_t> leads_out;   // into the middle of other ranges
  std::vector<JumpTable> tables_outside;  // of their ranges
};

class CodeWalk {
 public:
  CodeWalk(const MachImage& image, const CodeMap& map, TargetSet& targets, WalkResult& result);

  /// Decodes a range from its beginning and from more places of it; adds to the result and to the targets.
  ///   tables  that are known to lie in it
  void walk(CodeRange range, std::span<const std::uint32_t> places = {}, std::span<const JumpTable> tables = {});

 private:
  /// A bit for each byte of the range.
  class Bits {
   public:
    void clear(std::uint32_t count) { words_.assign(count / 64 + 1, 0); }
    bool has(std::uint32_t at) const { return (words_[at / 64] >> at % 64 & 1) != 0; }
    void set(std::uint32_t at) { words_[at / 64] |= std::uint64_t{1} << at % 64; }
    void set(std::uint32_t at, std::uint32_t count);  // 15 at most
    void set_all(CodeRange bits);
    /// The first that is set (or not) from `at` on, or `end`.
    std::uint32_t next(std::uint32_t at, std::uint32_t end, bool wanted) const;

   private:
    std::vector<std::uint64_t> words_;
  };

  struct LocalTable {
    std::uint32_t width;
    std::uint32_t next;   // the entry to follow
    std::uint32_t limit;  // entries end here at the latest
  };

  enum class Reach { any, gap };

  bool read_everything(bool may_begin_anew);
  void decode_from(std::uint32_t place, Reach reach);
  bool follow_one_entry();
  bool fill_one_gap();
  bool name_more_tables();
  void note_tables_elsewhere();
  void note_unread();

  void note(const ZydisDecodedInstruction& instruction, std::uint32_t end);
  void note_table_use(const ZydisDecodedInstruction& instruction, std::uint32_t end);
  void name(unsigned reg, std::uint64_t place);
  void note_addresses();
  void confirm(JumpTable table);
  void lead_to(std::uint64_t place);
  bool in_table(std::uint32_t place) const;
  std::optional<std::int64_t> entry_at(std::uint64_t place, std::uint32_t width) const;
  bool may_begin(std::uint64_t place) const;
  bool is_padding(std::uint32_t place) const;

  static constexpr std::uint32_t nowhere = UINT32_MAX;

  const MachImage& image_;
  const CodeMap& map_;
  TargetSet& targets_;
  WalkResult& result_;
  ZydisDecoder decoder_;

  // What the registers hold, as far as it is the address of a table or an entry of one: kept from range to range, for
  // a symbol may stand between a name and its use.
  std::array<std::uint32_t, 16> named_;
  std::array<JumpTable, 16> loaded_;

  // Of the range:
  CodeRange range_ = {};
  std::span<const std::byte> bytes_;
  const CodeSection* section_ = nullptr;
  Bits starts_, covered_;                       // first bytes of instructions; all their bytes
  Bits data_;                                   // what the linker says is none
  std::vector<std::uint32_t> pending_;          // places to decode from, a heap with the lowest first
  std::map<std::uint32_t, LocalTable> tables_;  // by their beginnings
  std::set<std::uint32_t> open_tables_;         // with entries that were not looked at
  std::vector<std::uint32_t> names_;            // addresses that it computes
  std::vector<std::uint32_t> addresses_;        // those in the range that it seems to compute, ascending
  std::vector<GsSite> sites_;
  std::vector<CodeRange> failed_;
  std::uint32_t gap_at_ = 0;         // no gap begins before it
  bool jumps_indirectly_ = false;    // through a register or memory
  std::size_t names_looked_at_ = 0;  // by name_more_tables()
  bool begins_anew_ = false;         // a table was decoded as code before it was known
};

}  // namespace vlm::tessera
