// A small image with everything the loader reads: the start of tests that then break one thing of it.
//
//   __PAGEZERO   0            4 GiB     not mapped
//   __TEXT       0x100000000  0x2000    __text, __const
//   __DATA       0x100002000  0x3000    __mod_init_func, __data; 0x1000 bytes in the file, zeros behind
//   __LINKEDIT   0x100005000
#pragma once

#include "support/macho_builder.h"

namespace vlm::test {

using namespace std::string_view_literals;

inline constexpr std::uint64_t text_vmaddr = 0x100000000, data_vmaddr = text_vmaddr + 0x2000;
inline constexpr int text_segment = 1, data_segment = 2;
inline constexpr std::uint64_t good_rebases = 23, good_binds = 7, good_lazy_binds = 2;

// Streams as bytes: REBASE_OPCODE_ and BIND_OPCODE_ in macho/format.h name them.

/// Every rebase opcode; 23 pointers of __DATA, from its offset 0.
constexpr auto good_rebase_stream = "\x11\x22\0\x53\x41\x60\x0A\x30\x10\x70\x20\x80\x09\x08\0"sv;

/// Every bind opcode; 7 pointers of __DATA, from its offset 0x400, of three libraries. "_perhaps" is weak, its addend
/// -4.
constexpr auto good_bind_stream =
    "\x11\x40_malloc\0\x51\x72\x80\x08\x90\xB2\x20\x02\x40_other_function\0\xA0\x10"
    "\x3E\x41_perhaps\0\x80\x08\x60\x7C\xC0\x03\x08\x30\x40_game_start\0\x90\0"sv;

constexpr auto good_lazy_stream = "\x72\x80\x10\x11\x40_free\0\x90\0\x13\x40_missing\0\x90\0"sv;

inline ImageDraft good_draft() {
  ImageDraft draft;
  SegmentDraft text{"__TEXT", text_vmaddr, 0x2000, VM_PROT_READ | VM_PROT_EXECUTE, Bytes(0x1000, std::byte{0xC3}), {}};
  text.sections = {{"__TEXT", "__text", text_vmaddr + 0x1000, 0x800},
                   {"__TEXT", "__const", text_vmaddr + 0x1800, 0x80}};
  SegmentDraft data{"__DATA", data_vmaddr, 0x3000, VM_PROT_READ | VM_PROT_WRITE, {}, {}};
  for (int i = 0; i < 0x200; ++i) data.content.u64(text_vmaddr + 0x1000 + static_cast<std::uint64_t>(i));
  data.sections = {{"__DATA", "__mod_init_func", data_vmaddr, 0x10}, {"__DATA", "__data", data_vmaddr + 0x10, 0x2FF0}};
  draft.segments = {{"__PAGEZERO", 0, text_vmaddr, 0, {}, {}}, text, data};
  draft.linkedit_vmaddr = data_vmaddr + 0x3000;
  draft.dylibs = {"/usr/lib/libSystem.B.dylib", "@rpath/libOther.dylib", "Plain"};
  draft.rebase.text(good_rebase_stream);
  draft.bind.text(good_bind_stream);
  draft.weak_bind = Bytes().u8(0xFF);  // never read
  draft.lazy_bind.text(good_lazy_stream);
  draft.exports = export_trie({{"_game_start", 0x1000},
                               {"_game_stop", 0x1010},
                               {"_constant", 0x1234567, EXPORT_SYMBOL_FLAGS_KIND_ABSOLUTE},
                               {"_elsewhere", 1, EXPORT_SYMBOL_FLAGS_REEXPORT},
                               {"_stub", 0x1020, EXPORT_SYMBOL_FLAGS_STUB_AND_RESOLVER},
                               {"_other_function", 0x1030}});
  draft.symbols = {{"_helper", N_SECT, text_vmaddr + 0x1100},
                   {"_game_start", N_SECT | N_EXT, text_vmaddr + 0x1000},
                   {"_helper_alias", N_SECT | N_PEXT, text_vmaddr + 0x1100},
                   {"_debug", 0x24 | N_SECT, text_vmaddr + 0x1180},
                   {"_absolute", 0x02 | N_EXT, 0x1200},
                   {"_malloc", N_EXT, 0},
                   {"_far", N_SECT, text_vmaddr + 0x10000000}};
  return draft;
}

}  // namespace vlm::test
