// A small image with everything the loader reads: the start of tests that then break one thing of it.
//
//   __PAGEZERO   0            4 GiB     not mapped
//   __TEXT       0x100000000  0x2000    __text, __const
//   __DATA       0x100002000  0x3000    __mod_init_func, __data; 0x1000 bytes in the file, zeros behind
//   __LINKEDIT   0x100005000
#pragma once

#include "support/macho_builder.h"

namespace vlm::test {

inline constexpr std::uint64_t text_vmaddr = 0x100000000;
inline constexpr std::uint64_t data_vmaddr = text_vmaddr + 0x2000;
inline constexpr int text_segment = 1;
inline constexpr int data_segment = 2;
inline constexpr std::uint64_t good_rebases = 23;
inline constexpr std::uint64_t good_binds = 7;
inline constexpr std::uint64_t good_lazy_binds = 2;

/// Every rebase opcode; 23 pointers of __DATA, from its offset 0.
// clang-format off: an opcode and its operands to a line
inline Bytes good_rebase_stream() {
  return Bytes()
      .u8(REBASE_OPCODE_SET_TYPE_IMM | 1)
      .u8(REBASE_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | data_segment).uleb(0)
      .u8(REBASE_OPCODE_DO_REBASE_IMM_TIMES | 3)
      .u8(REBASE_OPCODE_ADD_ADDR_IMM_SCALED | 1)
      .u8(REBASE_OPCODE_DO_REBASE_ULEB_TIMES).uleb(10)
      .u8(REBASE_OPCODE_ADD_ADDR_ULEB).uleb(0x10)
      .u8(REBASE_OPCODE_DO_REBASE_ADD_ADDR_ULEB).uleb(0x20)
      .u8(REBASE_OPCODE_DO_REBASE_ULEB_TIMES_SKIPPING_ULEB).uleb(9).uleb(8)
      .u8(REBASE_OPCODE_DONE);
}

/// Every bind opcode; 7 pointers of __DATA, from its offset 0x400.
inline Bytes good_bind_stream() {
  return Bytes()
      .u8(BIND_OPCODE_SET_DYLIB_ORDINAL_IMM | 1)
      .u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).c_string("_malloc")
      .u8(BIND_OPCODE_SET_TYPE_IMM | 1)
      .u8(BIND_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | data_segment).uleb(0x400)
      .u8(BIND_OPCODE_DO_BIND)
      .u8(BIND_OPCODE_DO_BIND_ADD_ADDR_IMM_SCALED | 2)
      .u8(BIND_OPCODE_SET_DYLIB_ORDINAL_ULEB).uleb(2)
      .u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).c_string("_other_function")
      .u8(BIND_OPCODE_DO_BIND_ADD_ADDR_ULEB).uleb(0x10)
      .u8(BIND_OPCODE_SET_DYLIB_SPECIAL_IMM | 0xE)
      .u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM | BIND_SYMBOL_FLAGS_WEAK_IMPORT).c_string("_perhaps")
      .u8(BIND_OPCODE_ADD_ADDR_ULEB).uleb(8)
      .u8(BIND_OPCODE_SET_ADDEND_SLEB).sleb(-4)
      .u8(BIND_OPCODE_DO_BIND_ULEB_TIMES_SKIPPING_ULEB).uleb(3).uleb(8)
      .u8(BIND_OPCODE_SET_DYLIB_SPECIAL_IMM)
      .u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).c_string("_game_start")
      .u8(BIND_OPCODE_DO_BIND)
      .u8(BIND_OPCODE_DONE);
}

inline Bytes good_lazy_stream() {
  return Bytes()
      .u8(BIND_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | data_segment).uleb(0x800)
      .u8(BIND_OPCODE_SET_DYLIB_ORDINAL_IMM | 1)
      .u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).c_string("_free")
      .u8(BIND_OPCODE_DO_BIND)
      .u8(BIND_OPCODE_DONE)
      .u8(BIND_OPCODE_SET_DYLIB_ORDINAL_IMM | 3)
      .u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).c_string("_missing")
      .u8(BIND_OPCODE_DO_BIND)
      .u8(BIND_OPCODE_DONE);
}
// clang-format on

inline ImageDraft good_draft() {
  ImageDraft draft;
  SegmentDraft pagezero{"__PAGEZERO", 0, text_vmaddr, 0, {}, {}};
  SegmentDraft text{"__TEXT", text_vmaddr, 0x2000, VM_PROT_READ | VM_PROT_EXECUTE, Bytes(0x1000, std::byte{0xC3}), {}};
  text.sections = {{"__TEXT", "__text", text_vmaddr + 0x1000, 0x800},
                   {"__TEXT", "__const", text_vmaddr + 0x1800, 0x80}};
  SegmentDraft data{"__DATA", data_vmaddr, 0x3000, VM_PROT_READ | VM_PROT_WRITE, {}, {}};
  for (int i = 0; i < 0x200; ++i) data.content.u64(text_vmaddr + 0x1000 + static_cast<std::uint64_t>(i));
  data.sections = {{"__DATA", "__mod_init_func", data_vmaddr, 0x10}, {"__DATA", "__data", data_vmaddr + 0x10, 0x2FF0}};
  draft.segments = {pagezero, text, data};
  draft.linkedit_vmaddr = data_vmaddr + 0x3000;
  draft.dylibs = {"/usr/lib/libSystem.B.dylib", "@rpath/libOther.dylib", "Plain"};
  draft.rebase = good_rebase_stream();
  draft.bind = good_bind_stream();
  draft.weak_bind = Bytes().u8(0xFF);  // never read
  draft.lazy_bind = good_lazy_stream();
  draft.exports = export_trie({{"_game_start", 0x1000},
                               {"_game_stop", 0x1010},
                               {"_constant", 0x1234567, EXPORT_SYMBOL_FLAGS_KIND_ABSOLUTE},
                               {"_elsewhere", 1, EXPORT_SYMBOL_FLAGS_REEXPORT},
                               {"_stub", 0x1020, EXPORT_SYMBOL_FLAGS_STUB_AND_RESOLVER},
                               {"_other_function", 0x1030}});
  draft.symbols = {{"_game_start", N_SECT | N_EXT, text_vmaddr + 0x1000},
                   {"_helper", N_SECT, text_vmaddr + 0x1100},
                   {"_helper_alias", N_SECT | N_PEXT, text_vmaddr + 0x1100},
                   {"_debug", 0x24 | N_SECT, text_vmaddr + 0x1180},
                   {"_absolute", 0x02 | N_EXT, 0x1200},
                   {"_malloc", N_EXT, 0},
                   {"_far", N_SECT, text_vmaddr + 0x10000000}};
  return draft;
}

}  // namespace vlm::test
