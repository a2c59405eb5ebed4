#include "support/damage.h"

#include <algorithm>
#include <random>

#include "support/good_image.h"

namespace vlm::test {
namespace {

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  std::uint64_t below(std::uint64_t limit) { return engine_() % limit; }
  bool one_in(std::uint64_t n) { return below(n) == 0; }

  /// A number that computations go wrong with, or any of up to 64 bits.
  std::uint64_t number() {
    static constexpr std::uint64_t edges[] = {0, 4, 0x1000, 0x7FFF, 0xFFFF, 0xFFFFFFFF, data_vmaddr, 1ull << 63};
    return one_in(4) ? engine_() >> below(64) : edges[below(std::size(edges))] + below(17) - 8;
  }

  /// Changes one field of `size` bytes to another number, or a little.
  void change_field(Bytes& bytes, std::size_t offset, std::size_t size) {
    std::uint64_t value = 0;
    std::memcpy(&value, bytes.data() + offset, size);
    value = one_in(2) ? number() : value + below(65) - 32;
    std::memcpy(bytes.data() + offset, &value, size);
  }

  void change_byte(Bytes& bytes, std::size_t begin, std::size_t end) {
    if (begin >= end) return;
    std::byte& byte = bytes[begin + below(end - begin)];
    byte = one_in(2) ? std::byte(below(256)) : byte ^ std::byte(1 << below(8));
  }

 private:
  std::mt19937_64 engine_;
};

constexpr std::uint64_t category_offset = 0x900;  // in __DATA

/// The good image without initializers, with a category of NSObject.
ImageDraft draft_without_code() {
  ImageDraft draft = good_draft();
  SegmentDraft& data = draft.segments[data_segment];
  data.sections[0] = {"__DATA", "__objc_catlist", data_vmaddr, 8};
  data.content.put_at(0, data_vmaddr + category_offset);
  draft.bind.pop_back();  // DONE
  draft.bind.u8(0x11).u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).c_string("_OBJC_CLASS_$_NSObject");
  draft.bind.u8(0x70 | data_segment).uleb(category_offset + 8).u8(0x60).sleb(0).u8(BIND_OPCODE_DO_BIND);
  return draft;
}

void change_draft(Random& random, ImageDraft& draft) {
  Bytes* const tables[] = {&draft.rebase, &draft.bind, &draft.lazy_bind, &draft.exports};
  Bytes& table = *tables[random.below(std::size(tables))];
  switch (random.below(4)) {
    case 0: std::ranges::generate(table, [&] { return std::byte(random.below(256)); }); break;
    case 1: table.resize(random.below(table.size() + 1)); break;
    case 2:  // a field of the category
      random.change_field(draft.segments[data_segment].content, category_offset + 8 * random.below(4), 8);
      break;
    default: random.change_byte(table, 0, table.size());
  }
}

void change_file(Random& random, Bytes& file) {
  MachHeader64 header;
  std::memcpy(&header, file.data(), sizeof header);
  const std::size_t commands_end = sizeof header + std::min<std::uint32_t>(header.sizeofcmds, header_room / 2);
  const std::size_t link_edit = file.size() - file.size() % file_alignment;  // streams, trie, symbols
  const std::size_t size = random.one_in(2) ? 4 : 8;
  switch (random.below(8)) {
    case 0: file.resize(random.below(file.size())), file.pad_to(header_room); break;
    case 1:
    case 2: random.change_byte(file, link_edit, file.size()); break;
    case 3: random.change_byte(file, 0, commands_end); break;
    default: random.change_field(file, random.below(commands_end / size) * size, size);
  }
}

}  // namespace

Bytes damaged_image(std::uint64_t seed) {
  Random random(seed);
  ImageDraft draft = draft_without_code();
  std::uint64_t changes = 1 + random.below(3);
  for (; changes > 0 && random.one_in(2); --changes) change_draft(random, draft);
  Bytes file = build_image(draft);
  for (; changes > 0; --changes) change_file(random, file);
  if (random.one_in(8)) file = build_universal({{CPU_TYPE_X86_64, file}, {0x0100000C, Bytes().u64(0)}});
  if (random.one_in(8)) random.change_byte(file, 0, 48);
  return file;
}

}  // namespace vlm::test
