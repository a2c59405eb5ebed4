// The inspector on images that no linker makes.
#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#include <doctest/doctest.h>

#include <algorithm>
#include <string_view>

#include "inspect/gather.h"
#include "inspect/library.h"
#include "inspect/writers.h"
#include "support/good_image.h"

using namespace vlm;
using namespace vlm::inspect;
using namespace vlm::test;
using namespace std::literals;

static const Library library = {.path = "GameAssembly.dll",
                                .family_of = {{"_malloc", "memory"}, {"_free", "memory"}, {"_game_start", "never"}},
                                .family_count = 2,
                                .row_count = 3,
                                .patch_list = {}};

static ImageDraft inspected_draft() {
  ImageDraft draft = good_draft();
  draft.segments[text_segment].sections[0].flags = S_ATTR_PURE_INSTRUCTIONS;
  draft.segments[data_segment].sections[0].addr = data_vmaddr + 8;  // its entries, like all data, point into __text
  return draft;
}

static Facts facts_of(const Bytes& file) { return gather("image", file, &library); }

TEST_CASE("imports are answered in the loader's order, pointers are counted, the weak stream is passed over") {
  const Facts facts = facts_of(build_image(inspected_draft()));
  CHECK_EQ(facts.status, SOMETHING_MISSING);
  std::string answers;
  for (const ImportedSymbol& import : facts.linkage->imports) {
    answers += import.name + ": " + (import.family.empty() ? answer_name(import.answer) : import.family) + "\n";
  }
  CHECK_EQ(answers,
           "_free: memory\n"
           "_game_start: the image itself\n"
           "_malloc: memory\n"
           "_missing: no implementation\n"
           "_other_function: no implementation\n"
           "_perhaps: null, as weak imports may be\n");
  const auto& fixups = facts.linkage->fixups;
  CHECK((fixups.rebases == good_rebases && fixups.binds == good_binds && fixups.lazy_binds == good_lazy_binds));
  CHECK((fixups.faults.empty() && facts.linkage->imports.back().weak));
  CHECK_EQ(gather("image", build_image(inspected_draft()), nullptr).linkage->imports[2].answer, Answer::not_judged);
}

TEST_CASE("what would not start is refused with its reason, and the rest of it reported all the same") {
  const Bytes chained = Bytes().u32(LC_DYLD_CHAINED_FIXUPS).u32(16).u64(0), ret = Bytes().u8(0xC3);
  const Bytes far_symbols = Bytes().u32(LC_SYMTAB).u32(24).u32(0x10000000).u32(1).u64(0);
  const Bytes mov_to_gs_256_rsp = Bytes().u32(0x24894865).u32(0x00010025).u8(0);
  constexpr std::uint64_t start = text_vmaddr + 0x1000;
  const struct {
    std::string_view reason;
    std::vector<Bytes> commands;
    Bytes code;
    std::uint64_t initializer;
    bool linkage, thread_storage;  // still there
  } rows[] = {
      {"chained fixups are not supported", {chained}, ret, start, false, true},
      {"the symbol table takes 0x10 bytes at 0x10000000", {far_symbols}, ret, start, false, false},
      {"initializer 0 of __DATA,__mod_init_func is 0x7 (no symbol), not in the image's code", {}, ret, 7, true, true},
      {"1 access to thread storage cannot be patched: cannot replace the instruction at 0x100001000 (_game_start), ",
       {},
       mov_to_gs_256_rsp,
       start,
       true,
       true},
  };
  for (const auto& row : rows) {
    CAPTURE(row.reason);
    ImageDraft draft = inspected_draft();
    draft.more_commands = row.commands;
    std::ranges::copy(row.code, draft.segments[text_segment].content.begin());
    draft.segments[data_segment].content.put_at(8, row.initializer);
    const Facts facts = facts_of(build_image(draft));
    CHECK_EQ(facts.status, NOT_LOADED);
    CHECK(facts.reasons.at(0).contains(row.reason));
    CHECK((facts.format.segments.size() >= 4 && facts.format.libraries.size() == 3));
    CHECK((facts.linkage.has_value() == row.linkage && facts.thread_storage.has_value() == row.thread_storage));
  }
  Bytes other_cpu = build_image(inspected_draft()), unlinked = other_cpu;
  other_cpu.put_at(4, std::uint32_t{0x0100000C});
  CHECK_EQ(facts_of(other_cpu).reasons, std::vector<std::string>{"its code is for arm64, not x86-64"});
  const auto info = Bytes().u32(LC_DYLD_INFO_ONLY).u32(sizeof(DyldInfoCommand));
  *std::ranges::search(unlinked, info).begin() = std::byte{0x7F};
  CHECK(facts_of(unlinked).reasons[0].starts_with("it has no dyld information"));
}

TEST_CASE("a class is found where another symbol is, thread-local variables count, names of any bytes are written") {
  ImageDraft draft = inspected_draft();
  for (const char* name : {"_other", "_OBJC_CLASS_$_Here"}) draft.symbols.push_back({name, N_SECT, data_vmaddr});
  const char* const strange = "_\"\\\x1b[2J\xff\xed\xa0\x80\xc3\xa9";
  for (const char* name : {"_aardvark", "_printf", "__ZNKSt3__15ctypeIcE2idE", strange}) {
    draft.lazy_bind.u8(BIND_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | data_segment).uleb(0x900);
    draft.lazy_bind.u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).c_string(name).u8(BIND_OPCODE_DO_BIND);
  }
  Facts facts = facts_of(build_image(draft));
  CHECK_EQ(facts.objective_c->brought_names, std::vector<std::string>{"Here"});
  CHECK(facts.reasons[0].contains("ends the game: _printf, _\""));  // early calls come first
  // Valid JSON, and nothing that a terminal obeys.
  CHECK(write_json(facts).contains(R"("_\"\\\u001b[2J\ufffd\ufffd\ufffd\ufffdé")"));
  CHECK(write_text(facts, false).contains(R"(_"\\x1b[2J\xff\xed\xa0\x80é)"sv));
  CHECK_FALSE(write_text(facts, false).contains('\x1b'));
  facts.format.sections.push_back({"__DATA", "__thread_vars", 0, 48, S_THREAD_LOCAL_VARIABLES});
  facts.reasons.clear();
  judge(facts);
  CHECK(std::ranges::count(facts.reasons,
                           "2 thread-local variables are not set up, an access of which ends the game"s) == 1);
}
