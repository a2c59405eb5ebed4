// Writes the assembly of a guest image full of gs accesses, to be patched by Tessera and run by gs_cases_test.
//
//   make_gs_cases OUT.S [CASES]
//
// Each case is one function body in two forms that differ in nothing but the place of thread storage:
//
//   gs form         movq %gs:8(%rax), %rbx             patched: a trampoline performs it
//   expected form   movq 0x20000008(%rax), %rbx        plain memory at a fixed address, with the same contents
//
// Bodies are random around the access (the same bodies on every machine): neighbours of every kind that may have to
// move, and what must not move (calls, branch targets of every kind) close by. One neighbour of each short access is
// kept movable, so that each can be patched. Registers start as small multiples of 16; `safe` ones still hold such a
// number and may address storage.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Text = std::string;

constexpr unsigned plain_storage = 0x20000000;
enum CaseFlags { NEEDS_AVX = 1, LEAVES_ADDRESS = 2 };  // the latter: right below rsp, which is not compared then

/// xorshift64: the same on every machine.
class Random {
 public:
  unsigned below(unsigned bound) {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<unsigned>((state_ >> 20) % bound);
  }
  bool one_in(unsigned n) { return below(n) == 0; }
  template <class T, std::size_t N>
  const T& of(const T (&rows)[N]) {
    return rows[below(N)];
  }

 private:
  std::uint64_t state_ = 0x9E3779B97F4A7C15;
};

constexpr unsigned register_count = 16;
constexpr unsigned rax = 0, rcx = 1, rdx = 2, rsp = 4, rsi = 6, r11 = 11;
constexpr const char* names[4][register_count] = {
    {"al", "cl", "dl", "bl", "spl", "bpl", "sil", "dil", "r8b", "r9b", "r10b", "r11b", "r12b", "r13b", "r14b", "r15b"},
    {"ax", "cx", "dx", "bx", "sp", "bp", "si", "di", "r8w", "r9w", "r10w", "r11w", "r12w", "r13w", "r14w", "r15w"},
    {"eax", "ecx", "edx", "ebx", "esp", "ebp", "esi", "edi", "r8d", "r9d", "r10d", "r11d", "r12d", "r13d", "r14d",
     "r15d"},
    {"rax", "rcx", "rdx", "rbx", "rsp", "rbp", "rsi", "rdi", "r8", "r9", "r10", "r11", "r12", "r13", "r14", "r15"}};

constexpr std::uint32_t bit(unsigned reg) { return 1u << reg; }

/// In a row's text: {M} storage; {b} {w} {d} {q} the row's register; {z} the suffix of a size, of the larger three {Z},
/// and {r} the register in that size; {s} another one, 64 bits, only read, {t} in that size; {x} {y} a vector register;
/// {i} a small number; {v} a variable of the image, relative to rip; {c} a condition; {add|or} one of these words.
struct Row {
  const char* text;
  bool writes = false;            // the row's register
  std::uint32_t also_writes = 0;  // other registers
  enum Kind { PLAIN, ALIGNED, AVX, LEGACY } kind = PLAIN;
};

constexpr Row accesses[] = {
    {"movq {M}, {q}", true},
    {"movl {M}, {d}", true},
    {"mov{z} {M}, {r}", true},
    {"mov{z} {r}, {M}"},
    {"mov{z} ${i}, {M}"},
    {"mov{s|z}b{Z} {M}, {r}", true},
    {"movzwl {M}, {d}", true},
    {"movslq {M}, {q}", true},
    {"movb {M}, %ah", false, bit(rax), Row::LEGACY},
    {"movb %dh, {M}", false, 0, Row::LEGACY},
    {"{add|adc|sub|sbb|and|or|xor}{z} {M}, {r}", true},
    {"{add|adc|sub|sbb|and|or|xor|cmp|test}{z} {r}, {M}"},
    {"{add|adc|sub|sbb|and|or|xor|cmp|test}{z} ${i}, {M}"},
    {"cmp{z} {M}, {r}"},
    {"{inc|dec|neg|not}{z} {M}"},
    {"{rol|ror|rcl|rcr|shl|shr|sar}{z} {$1|$2|$7|%cl}, {M}"},
    {"{shld|shrd}{Z} {$1|$5|%cl}, {r}, {M}"},
    {"imul{Z} {M}, {r}", true},
    {"imulq $1000, {M}, {q}", true},
    {"imul{Z} ${i}, {M}, {r}", true},
    {"{mul|imul}{z} {M}", false, bit(rax) | bit(rdx)},
    {"xchg{z} {M}, {r}", true, 0, Row::ALIGNED},
    {"{lock |}cmpxchg{z} {r}, {M}", false, bit(rax), Row::ALIGNED},
    {"lock xadd{z} {r}, {M}", true, 0, Row::ALIGNED},
    {"lock {inc|dec|neg|not}{z} {M}", false, 0, Row::ALIGNED},
    {"lock {add|adc|sub|sbb|and|or|xor}{z} {r}, {M}", false, 0, Row::ALIGNED},
    {"lock {bts|btr|btc}{Z} ${i}, {M}", false, 0, Row::ALIGNED},
    {"cmpxchg8b {M}", false, bit(rax) | bit(rdx)},
    {"lock cmpxchg16b {M}", false, bit(rax) | bit(rdx), Row::ALIGNED},
    {"cmov{c}{Z} {M}, {r}", true},
    {"set{c} {M}"},
    {"{bsf|bsr|popcnt}{Z} {M}, {r}", true},
    {"crc32{b|w|l} {M}, {d}", true},
    {"movnti {q}, {M}"},
    {"{movups|movdqu} {M}, {x}"},
    {"{movups|movdqu} {x}, {M}"},
    {"{movaps|movdqa|pxor|paddb|addps} {M}, {x}", false, 0, Row::ALIGNED},
    {"pshufd ${i}, {M}, {x}", false, 0, Row::ALIGNED},
    {"{movss|movhps|cvtsi2sdq|ucomisd} {M}, {x}"},
    {"movsd {x}, {M}"},
    {"cvttss2si {M}, {q}", true},
    {"pinsrw ${i}, {M}, {x}"},
    {"pextrb ${i}, {x}, {M}"},
    {"vmovups {M}, {y}", false, 0, Row::AVX},
    {"vmovdqu {y}, {M}", false, 0, Row::AVX},
    {"vaddps {M}, {y}, %ymm1", false, 0, Row::AVX},
    {"vpbroadcastd {M}, {y}", false, 0, Row::AVX},
    {"vpshufb {M}, {x}, %xmm2", false, 0, Row::AVX},
    {"vmovss {M}, {x}", false, 0, Row::AVX},
    {"vfmadd213sd {M}, {x}, %xmm3", false, 0, Row::AVX},
};

/// Neighbours of 2 bytes and more that a short access can take with it, on either side.
constexpr Row guards[] = {
    {"mov{Z} {t}, {r}", true},
    {"{add|adc|sub|sbb|and|or|xor}{Z} {t}, {r}", true},
    {"{add|adc|sub|sbb|and|or|xor}{Z} ${i}, {r}", true},
    {"{cmp|test}{Z} {t}, {r}"},
    {"leaq 5({q},{s},2), {q}", true},
    {"{inc|dec|neg|not}{Z} {r}", true},
    {"set{c} {b}", true},
    {"cmov{c}{Z} {t}, {r}", true},
    {"{rol|rcr|shl|sar}{Z} ${i}, {r}", true},
    {"btq ${i}, {q}"},
    {"bswapq {q}", true},
    {"{addps %xmm1|pxor %xmm2}, {x}"},
    {"{mov|lea|xchg}q {v}, {q}", true},  // relative to rip
    {"movl {d}, {v}"},
    {"{add|cmp}{z} ${i}, {v}"},
    {"movsd {v}, {x}"},
    {"movups {x}, {v}"},
    {"incq {v}"},
    {"imulq ${i}, {v}, {q}", true},
    {"lock xaddq {q}, {v}", true},
};

/// Neighbours that can move outside only, or are too short to make room.
constexpr Row others[] = {
    {"pushq {q}\n popq {q}"},
    {"movq -24(%rsp), {q}", true},
    {"movq {q}, -8(%rsp)"},
    {"movl ${i}, -120(%rsp)"},
    {"addq {q}, 8(%rsp)"},
    {"leaq -16(%rsp), %rsp\n leaq 16(%rsp), %rsp"},
    {"cmc"},
    {"stc"},
    {"clc"},
    {"std\n cld"},
    {"nop"},
    {"cltq", false, bit(rax)},
    {"cqto", false, bit(rdx)},
    {"lahf", false, bit(rax)},
    {"sahf"},
    {"pushfq\n popfq"},
};

constexpr const char* conditions[] = {"o", "no", "c", "nc", "z", "nz", "be", "a",
                                      "s", "ns", "p", "np", "l", "ge", "le", "g"};

struct Storage {
  std::uint32_t registers = 0;
  Text text;  // with {T} where the thread storage is named
};

class Case {
 public:
  Case(unsigned number, Random& random) : number_(number), random_(random) {
    if (random_.one_in(6)) jump_table();
    const unsigned parts = 1 + random_.below(2);
    for (unsigned i = 0; i < parts; ++i) part();
    if (random_.one_in(5)) line("jmp " + use_label());
    place_labels();
    line("ret");
    static constexpr const char* paddings[] = {"nop", "nopw (%rax,%rax)", "nopl (%rax)"};
    line(random_.of(paddings));
  }

  unsigned flags() const { return flags_; }
  const Text& description() const { return description_; }

  /// The function, `form` 'g' or 'e'.
  Text text(char form) const {
    Text out;
    for (std::size_t i = 0; i < body_.size(); ++i) {
      if (body_[i] == '@') {
        out += form;
      } else if (body_[i] == '!') {  // "!disp(": the place of an access
        const bool gs = form == 'g';
        out += gs ? "%gs:" : std::to_string(plain_storage) + "+";
      } else {
        out += body_[i];
      }
    }
    return out;
  }

 private:
  unsigned any(std::uint32_t set) {
    for (;;) {
      const unsigned reg = random_.below(register_count);
      if ((set & bit(reg)) != 0) return reg;
    }
  }
  static constexpr std::uint32_t all_registers = 0xFFFF & ~bit(rsp);
  std::uint32_t writable() const { return all_registers & ~frozen_; }
  Text number(unsigned value) { return std::to_string(value); }

  void line(const Text& text) { body_ += " " + text + "\n"; }
  Text new_label() { return "L" + number(number_) + "_" + number(labels_++) + "@"; }
  void label(const Text& name) { body_ += name + ":\n"; }

  /// A label to be placed further down.
  Text use_label() {
    pending_.push_back(new_label());
    return pending_.back();
  }
  void place_labels() {
    const bool may_be_far = !pending_.empty() && !near_only_ && !in_loop_;
    if (may_be_far && random_.one_in(10)) line(".fill 140, 1, 0x90");
    for (const Text& name : pending_) label(name);
    pending_.clear();
    near_only_ = false;
  }

  /// Base, index and displacement whose sum stays in the storage.
  Storage place(Row::Kind kind) {
    std::uint32_t usable = in_loop_ ? safe_ & frozen_ : safe_;
    if (kind == Row::LEGACY) usable &= 0xFF;
    const unsigned displacement = kind == Row::ALIGNED ? 16 * random_.below(90) : random_.below(1440);
    if (usable == 0) return {0, "!" + number(displacement)};
    const unsigned base = any(usable), index = any(usable);
    const Text b = Text("%") + names[3][base], x = Text("%") + names[3][index];
    const Text scale = number(1 << random_.below(4));
    switch (random_.below(15)) {
      case 0: return {0, "!" + number(displacement)};
      case 1: return {bit(index), "!" + number(displacement) + "(," + x + "," + scale + ")"};
      case 2: return {bit(base) | bit(index), "!0(" + b + "," + x + "," + scale + ")"};
      case 3: return {bit(base) | bit(index), "!" + number(displacement) + "(" + b + "," + x + "," + scale + ")"};
      case 4: return {bit(base), "!" + number(displacement) + "(" + b + ")"};
      case 5: return {bit(base), "!" + number(kind == Row::ALIGNED ? 16 : 1 + random_.below(100)) + "(" + b + ")"};
      default: return {bit(base), "!0(" + b + ")"};  // short
    }
  }

  void replace(Text& text, std::string_view what, const Text& with) {
    for (std::size_t at; (at = text.find(what)) != Text::npos;) text.replace(at, what.size(), with);
  }

  /// Puts one of its words in the place of each list.
  void choose(Text& text) {
    for (std::size_t bar; (bar = text.find('|')) != Text::npos;) {
      const std::size_t begin = text.rfind('{', bar), size = text.find('}', bar) + 1 - begin;
      Text words = text.substr(begin + 1, size - 2);
      const auto bars = static_cast<unsigned>(std::ranges::count(words, '|'));
      for (unsigned skip = random_.below(bars + 1); skip > 0; --skip) words.erase(0, words.find('|') + 1);
      text.replace(begin, size, words.substr(0, words.find('|')));
    }
  }

  /// Fills in a row. What it writes is no longer fit to address storage.
  Text fill(const Row& row, const Storage& storage = {}) {
    Text text = row.text;
    const bool legacy = row.kind == Row::LEGACY;
    const unsigned reg = any(row.writes ? writable() : legacy ? 0x0F : all_registers);
    choose(text);
    replace(text, "{c}", random_.of(conditions));
    replace(text, "{M}", storage.text);
    const unsigned chosen = text.find("{Z}") != Text::npos ? 1 + random_.below(3) : random_.below(4);
    for (const char* suffix : {"{z}", "{Z}"}) replace(text, suffix, Text(1, "bwlq"[chosen]));
    replace(text, "{r}", Text("%") + names[chosen][reg]);
    for (unsigned size = 0; size < 4; ++size) {
      const char placeholder[] = {'{', "bwdq"[size], '}', '\0'};
      replace(text, placeholder, Text("%") + names[size][reg]);
    }
    const unsigned other = any(all_registers);
    replace(text, "{s}", Text("%") + names[3][other]);
    replace(text, "{t}", Text("%") + names[chosen][other]);
    replace(text, "{x}", "%xmm" + number(random_.below(4)));
    replace(text, "{y}", "%ymm" + number(random_.below(4)));
    replace(text, "{i}", number(1 + random_.below(7)));
    replace(text, "{v}", "_gs_case_variables+" + number(16 * random_.below(4)) + "(%rip)");
    if (row.writes) safe_ &= ~bit(reg);
    safe_ &= ~row.also_writes;
    if (row.kind == Row::AVX) flags_ |= NEEDS_AVX;
    return text;
  }

  bool allowed(const Row& row) const { return (row.also_writes & ~writable()) == 0; }

  /// A neighbour that can be moved, of 2 bytes at least.
  void guard(bool in_front) {
    switch (random_.below(12)) {
      case 0: line(Text("j") + random_.of(conditions) + " " + use_label()); return;
      case 1:
        if (random_.one_in(3)) {
          near_only_ = true;
          return line("jrcxz " + use_label());
        }
        if (!in_front) return line("jmp " + use_label());
        [[fallthrough]];
      default: line(fill(random_.of(guards)));
    }
  }

  /// What may stand on the other side of an access: anything.
  void beside() {
    switch (random_.below(7)) {
      case 0:
        line("call gs_case_helper");
        flags_ |= LEAVES_ADDRESS;
        safe_ &= ~bit(r11);
        return;
      case 1: place_labels(); return;
      case 2: return;
      case 3: return guard(true);
      default: {
        const Row& row = random_.of(others);
        if (allowed(row)) line(fill(row));
      }
    }
  }

  void access(bool alone) {
    if (alone && random_.one_in(24)) return access_by_rsp();
    if (alone && random_.one_in(24)) return push_or_pop();
    const Row* row;
    do row = random_.one_in(3) ? &accesses[random_.below(2)] : &random_.of(accesses);  // what compilers emit most
    while (!allowed(*row));
    const Storage storage = place(row->kind);
    const Text text = fill(*row, storage);
    line(text);
    description_ += (description_.empty() ? "" : "; ") + text;
  }

  void access_by_rsp() {
    const unsigned reg = any(writable());
    const Text name = Text("%") + names[3][reg];
    line("movq %rsp, " + name);
    line("negq " + name);
    line(fill({"movq {v}, %xmm0"}));
    line("leaq 48(" + name + "), " + name);
    line(fill({random_.one_in(2) ? "addq {q}, {M}" : "movq {M}, %xmm1"},
              {0, (random_.one_in(2) ? "!0(%rsp," : "!160(%rsp,") + name + ",1)"}));
    line(Text("movl $32, %") + names[2][reg]);
  }

  void push_or_pop() {
    const Storage storage = place(Row::PLAIN);
    const unsigned reg = any(writable());
    const Text name = Text("%") + names[3][reg];
    if (random_.one_in(2)) {
      line("pushq " + storage.text);
      line("movl %esp, -8(%rsp)");
      line("popq " + name);
      safe_ &= ~bit(reg);
    } else {
      line("pushq " + name);
      line("popq " + storage.text);
      line(Text("testl %") + names[2][reg] + ", %" + names[2][reg]);
    }
  }

  /// An access, or two side by side, with a movable neighbour on one side and anything on the other.
  void site() {
    const bool in_front = random_.one_in(3);
    if (in_front) {
      beside();
      guard(true);
    } else {
      beside();
    }
    const bool alone = !random_.one_in(4);
    access(alone);
    if (!alone) {
      static constexpr const char* between[] = {
          "cmc", "clc", "nop", "stc", "cltq", "incl %esi", "cmpq %rax, _gs_case_variables(%rip)"};
      const Text neighbour = random_.of(between);
      if (random_.one_in(2) && ((bit(rax) | bit(rsi)) & ~writable()) == 0) {
        line(neighbour);
        safe_ &= ~(bit(rax) | bit(rsi));
      }
      access(alone);
    }
    if (in_front) {
      beside();
    } else {
      guard(false);
      beside();
    }
    if (random_.one_in(2)) place_labels();
  }

  void part() {
    if (random_.one_in(5) && (safe_ & ~bit(r11)) != 0) {
      loop();
    } else {
      site();
    }
  }

  /// Runs a site three times. What addresses storage, and the counter, are not written inside.
  void loop() {
    place_labels();
    const unsigned address = any(safe_ & ~bit(r11));
    unsigned counter;
    do counter = any(all_registers);
    while (counter == address || counter == r11 || counter == rax || counter == rdx);  // what rows write implicitly
    if (random_.one_in(4) && address != rcx) counter = rcx;
    line(Text("movl $3, %") + names[2][counter]);
    safe_ &= ~bit(counter);
    frozen_ = bit(address) | bit(counter);
    in_loop_ = true;
    const Text start = new_label();
    label(start);
    site();
    place_labels();
    if (counter == rcx && random_.one_in(2)) {
      line("loop " + start);
    } else {
      line(Text("decl %") + names[2][counter]);
      line("jnz " + start);
    }
    frozen_ = 0;
    in_loop_ = false;
  }

  /// Jumps into a row of three sites, by a table of distances in text, as compilers make it, of 4 or 8
  /// bytes each, or by one of addresses. A
  /// site before the next label must leave what is behind the label alone.
  void jump_table() {
    const bool addresses = random_.one_in(3), wide = random_.one_in(3);
    unsigned table, target;
    do table = any(all_registers), target = any(all_registers);
    while (table == target);
    const Text t = Text("%") + names[3][table], x = Text("%") + names[3][target];
    const Text name = "Ltable" + number(number_) + "@";
    const Text entries[] = {new_label(), new_label(), new_label()};
    line("leaq " + name + "(%rip), " + t);
    line("movl $" + number(random_.below(3)) + ", %" + names[2][target]);
    if (addresses) {
      line("movq (" + t + "," + x + ",8), " + x);
    } else {
      line((wide ? "movq (" : "movslq (") + t + "," + x + (wide ? ",8), " : ",4), ") + x);
      line("addq " + t + ", " + x);
    }
    // The two forms' addresses differ: none may stay in a register.
    line("movq " + x + ", -8(%rsp)");
    line(Text("movl $16, %") + names[2][table]);
    line(Text("movl $32, %") + names[2][target]);
    line("cmpl $16, " + (Text("%") + names[2][target]));
    line("jmp *-8(%rsp)");
    flags_ |= LEAVES_ADDRESS;

    line(addresses ? ".section __DATA,__const\n .p2align 3" : ".p2align 2\n .data_region jt32");
    label(name);
    for (const Text& to : entries) {
      line(addresses ? ".quad " + to : (wide ? ".quad " : ".long ") + to + "-" + name);
    }
    line(addresses ? ".text" : ".end_data_region");
    for (const Text& from : entries) {
      label(from);
      const bool in_front = random_.one_in(2);
      if (in_front) guard(true);
      access(false);
      if (!in_front) guard(false);
    }
    place_labels();
  }

  unsigned number_;
  Random& random_;
  Text body_, description_;
  unsigned labels_ = 0, flags_ = 0;
  std::vector<Text> pending_;
  std::uint32_t safe_ = all_registers;
  std::uint32_t frozen_ = 0;
  bool in_loop_ = false;
  bool near_only_ = false;  // a pending label is the target of a branch that has only a short form
};

constexpr const char* preamble = R"(# Written by make_gs_cases.
 .text
 .globl _il2cpp_init, _gs_cases, _gs_case_count, _gs_case_variables
_il2cpp_init:
 xorl %eax, %eax
 ret

# Puts 1 into r11 when it was called from a case, from where it stands.
gs_case_helper:
 movq (%rsp), %r11
 cmpq gs_case_range(%rip), %r11
 jb 1f
 cmpq gs_case_range+8(%rip), %r11
 jae 1f
 movl $1, %r11d
 testl %r11d, %r11d
 ret
1: movl $2, %r11d
 testl %r11d, %r11d
 ret

gs_cases_begin:
)";

constexpr const char* ending = R"(gs_cases_end:
 nop
 .data
 .p2align 4
_gs_case_variables:
 .fill 64, 1, 0
gs_case_range:
 .quad gs_cases_begin, gs_cases_end
)";

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: make_gs_cases OUT.S [CASES]\n", stderr);
    return 1;
  }
  const unsigned count = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 3000;
  Random random;
  Text code = preamble, table, descriptions;
  for (unsigned i = 0; i < count; ++i) {
    const Case one(i, random);
    const Text number = std::to_string(i);
    code += "case" + number + "g:\n" + one.text('g') + "case" + number + "e:\n" + one.text('e');
    table +=
        " .quad case" + number + "g, case" + number + "e, Ltext" + number + ", " + std::to_string(one.flags()) + "\n";
    descriptions += "Ltext" + number + ": .asciz \"" + number + ": " + one.description() + "\"\n";
  }
  std::ofstream out(argv[1], std::ios::binary);
  out << code << ending << "_gs_case_count: .quad " << count << "\n_gs_cases:\n"
      << table << " .section __TEXT,__cstring,cstring_literals\n"
      << descriptions;
  if (out.flush()) return 0;
  std::perror(argv[1]);
  return 1;
}
