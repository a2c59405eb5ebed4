// Writes the assembly of a guest image full of gs accesses, to be patched by Tessera and run by gs_cases_test.
//
//   make_gs_cases OUT.S
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
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Text = std::string;

constexpr unsigned case_count = 3000;
enum CaseFlags { NEEDS_AVX = 1, LEAVES_ADDRESS = 2 };  // the latter: right below rsp, which is not compared then

std::mt19937 random_numbers;  // the same on every machine
unsigned below(unsigned bound) { return static_cast<unsigned>(random_numbers() % bound); }
bool one_in(unsigned n) { return below(n) == 0; }
template <class T, std::size_t N>
const T& one_of(const T (&rows)[N]) {
  return rows[below(N)];
}

constexpr unsigned register_count = 16;
constexpr unsigned rax = 0, rdx = 2, rsp = 4, rsi = 6, r11 = 11;
constexpr const char* names[4][register_count] = {
    {"al", "cl", "dl", "bl", "spl", "bpl", "sil", "dil", "r8b", "r9b", "r10b", "r11b", "r12b", "r13b", "r14b", "r15b"},
    {"ax", "cx", "dx", "bx", "sp", "bp", "si", "di", "r8w", "r9w", "r10w", "r11w", "r12w", "r13w", "r14w", "r15w"},
    {"eax", "ecx", "edx", "ebx", "esp", "ebp", "esi", "edi", "r8d", "r9d", "r10d", "r11d", "r12d", "r13d", "r14d",
     "r15d"},
    {"rax", "rcx", "rdx", "rbx", "rsp", "rbp", "rsi", "rdi", "r8", "r9", "r10", "r11", "r12", "r13", "r14", "r15"}};

constexpr std::uint32_t bit(unsigned reg) { return 1u << reg; }
Text sized(unsigned reg, unsigned size) { return Text("%") + names[size][reg]; }
Text long_name(unsigned reg) { return sized(reg, 2); }
Text quad_name(unsigned reg) { return sized(reg, 3); }

/// In a row's text: {M} storage; {b} {w} {d} {q} the row's register; {z} the suffix of a size, of the larger three {Z},
/// and {r} the register in that size; {s} another one, 64 bits, only read, {t} in that size; {x} {y} a vector register;
/// {i} a small number; {v} a variable of the image, relative to rip; {c} a condition; {add|or} one of these words.
struct Row {
  const char* text;
  bool writes = false;            // the row's register
  std::uint32_t also_writes = 0;  // other registers
  enum Kind { PLAIN, ALIGNED, AVX } kind = PLAIN;
};

constexpr Row accesses[] = {
    {"movq {M}, {q}", true},
    {"movl {M}, {d}", true},
    {"{mov|add|adc|sub|sbb|and|or|xor}{z} {M}, {r}", true},
    {"{mov|add|adc|sub|sbb|and|or|xor|cmp|test}{z} {r}, {M}"},
    {"{mov|add|adc|sub|sbb|and|or|xor|cmp|test}{z} ${i}, {M}"},
    {"mov{s|z}b{Z} {M}, {r}", true},
    {"movzwl {M}, {d}", true},
    {"{movslq|cvttss2si} {M}, {q}", true},
    {"cmp{z} {M}, {r}"},
    {"{inc|dec|neg|not}{z} {M}"},
    {"{rol|ror|rcl|rcr|shl|shr|sar}{z} {$1|$2|$7|%cl}, {M}"},
    {"{shld|shrd}{Z} {$1|$5|%cl}, {r}, {M}"},
    {"{imul|bsf|bsr|popcnt}{Z} {M}, {r}", true},
    {"imul{Z} {$5|$1000}, {M}, {r}", true},
    {"{mul|imul}{z} {M}", false, bit(rax) | bit(rdx)},
    {"{xchg|lock xadd}{z} {r}, {M}", true, 0, Row::ALIGNED},
    {"{lock |}cmpxchg{z} {r}, {M}", false, bit(rax), Row::ALIGNED},
    {"lock {inc|dec|neg|not}{z} {M}", false, 0, Row::ALIGNED},
    {"lock {add|adc|sub|sbb|and|or|xor}{z} {r}, {M}", false, 0, Row::ALIGNED},
    {"lock {bts|btr|btc}{Z} ${i}, {M}", false, 0, Row::ALIGNED},
    {"{cmpxchg8b|lock cmpxchg16b} {M}", false, bit(rax) | bit(rdx), Row::ALIGNED},
    {"cmov{c}{Z} {M}, {r}", true},
    {"set{c} {M}"},
    {"{movups|movdqu|movss|movhps|cvtsi2sdq|ucomisd} {M}, {x}"},
    {"{movups|movdqu|movsd} {x}, {M}"},
    {"{movaps|movdqa|pxor|paddb|addps} {M}, {x}", false, 0, Row::ALIGNED},
    {"{vmovups|vpbroadcastd} {M}, {y}", false, 0, Row::AVX},
    {"vmovdqu {y}, {M}", false, 0, Row::AVX},
};

/// Accesses that bring their neighbours with them.
constexpr Row companies[] = {
    {"pushq {M}\n movl %esp, -8(%rsp)\n popq {q}", true},
    {"pushq {q}\n popq {M}\n testl {d}, {d}"},
    {"movq %rsp, {q}\n negq {q}\n movq {v}, %xmm0\n leaq 48({q}), {q}\n addq {s}, !{0|160}(%rsp,{q},1)", true},
};

/// May stand between two accesses.
constexpr Row between = {"{cmc|clc|nop|stc|cltq|incl %esi|cmpq %rax, _gs_case_variables(%rip)}", false,
                         bit(rax) | bit(rsi)};

/// Neighbours of 2 bytes and more that a short access can take with it, on either side.
constexpr Row guards[] = {
    {"{mov|add|adc|sub|sbb|and|or|xor}{Z} {t}, {r}", true},
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
    {"{mov|xchg|lock xadd}q {q}, {v}", true},  // relative to rip
    {"{mov|lea|imul}q {v}, {q}", true},
    {"{add|cmp}{z} ${i}, {v}"},
    {"{movsd|movups} {v}, {x}"},
    {"movups {x}, {v}"},
    {"imulq ${i}, {v}, {q}", true},
};

/// Neighbours that can move outside only, or are too short to make room.
constexpr Row others[] = {
    {"pushq {q}\n popq {q}"},   {"movq -24(%rsp), {q}", true},
    {"movq {q}, -8(%rsp)"},     {"movl ${i}, -120(%rsp)"},
    {"addq {q}, 8(%rsp)"},      {"{leaq -16(%rsp), %rsp\n leaq 16(%rsp), %rsp|std\n cld|pushfq\n popfq}"},
    {"{cmc|stc|clc|nop|sahf}"}, {"{cltq|lahf}", false, bit(rax)},
    {"cqto", false, bit(rdx)},
};

constexpr const char* conditions[] = {"o", "no", "c", "nc", "z", "nz", "be", "a",
                                      "s", "ns", "p", "np", "l", "ge", "le", "g"};

void replace(Text& text, std::string_view what, const Text& with) {
  for (std::size_t at = 0; (at = text.find(what, at)) != Text::npos;) text.replace(at, what.size(), with);
}

/// Puts one of its words in the place of each list.
void choose(Text& text) {
  for (std::size_t bar; (bar = text.find('|')) != Text::npos;) {
    const std::size_t begin = text.rfind('{', bar), size = text.find('}', bar) + 1 - begin;
    Text words = text.substr(begin + 1, size - 2);
    const auto bars = static_cast<unsigned>(std::ranges::count(words, '|'));
    for (unsigned skip = below(bars + 1); skip > 0; --skip) words.erase(0, words.find('|') + 1);
    text.replace(begin, size, words.substr(0, words.find('|')));
  }
}

class Case {
 public:
  explicit Case(unsigned number) : number_(number) {
    if (one_in(6)) jump_table();
    for (unsigned parts = 1 + below(2); parts > 0; --parts) site();
    if (one_in(5)) line("jmp " + use_label());
    place_labels();
    line("ret");
    static constexpr const char* paddings[] = {"nop", "nopw (%rax,%rax)", "nopl (%rax)"};
    line(one_of(paddings));
  }

  unsigned flags() const { return flags_; }

  /// The function, `form` 'g' or 'e'.
  Text text(char form) const {
    Text out = body_;
    replace(out, "@", Text(1, form));
    replace(out, "!", form == 'g' ? "%gs:" : "0x20000000+");  // "!disp(": the place of an access
    return out;
  }

 private:
  unsigned any(std::uint32_t set) {
    unsigned reg;
    do reg = below(register_count);
    while ((set & bit(reg)) == 0);
    return reg;
  }
  static constexpr std::uint32_t all_registers = 0xFFFF & ~bit(rsp);
  static Text number(unsigned value) { return std::to_string(value); }

  void line(const Text& text) { body_ += " " + text + "\n"; }
  Text new_label() { return "L" + number(number_) + "_" + number(labels_++) + "@"; }
  void label(const Text& name) { body_ += name + ":\n"; }

  /// A label to be placed further down.
  Text use_label() {
    pending_.push_back(new_label());
    return pending_.back();
  }
  void place_labels() {
    if (!pending_.empty() && one_in(10)) line(".fill 140, 1, 0x90");
    for (const Text& name : pending_) label(name);
    pending_.clear();
  }

  /// Base, index and displacement whose sum stays in the storage.
  Text place(Row::Kind kind) {
    const Text displacement = "!" + number(kind == Row::ALIGNED ? 16 * below(90) : below(1440));
    if (safe_ == 0) return displacement;
    const Text base = quad_name(any(safe_)), index = quad_name(any(safe_));
    const Text scaled = "," + index + "," + number(1 << below(4)) + ")";
    switch (below(15)) {
      case 0: return displacement;
      case 1: return displacement + "(" + scaled;
      case 2: return "!0(" + base + scaled;
      case 3: return displacement + "(" + base + scaled;
      case 4: return displacement + "(" + base + ")";
      case 5: return "!" + number(kind == Row::ALIGNED ? 16 : 1 + below(100)) + "(" + base + ")";
      default: return "!0(" + base + ")";  // short
    }
  }

  /// Fills in a row. What it writes is no longer fit to address storage.
  Text fill(const Row& row, const Text& storage = {}) {
    Text text = row.text;
    const unsigned reg = any(all_registers);
    choose(text);
    replace(text, "{c}", one_of(conditions));
    replace(text, "{M}", storage);
    const unsigned chosen = text.find("{Z}") != Text::npos ? 1 + below(3) : below(4);
    for (const char* suffix : {"{z}", "{Z}"}) replace(text, suffix, Text(1, "bwlq"[chosen]));
    replace(text, "{r}", sized(reg, chosen));
    for (unsigned size = 0; size < 4; ++size) {
      const char placeholder[] = {'{', "bwdq"[size], '}', '\0'};
      replace(text, placeholder, sized(reg, size));
    }
    const unsigned other = any(all_registers);
    replace(text, "{s}", quad_name(other));
    replace(text, "{t}", sized(other, chosen));
    replace(text, "{x}", "%xmm" + number(below(4)));
    replace(text, "{y}", "%ymm" + number(below(4)));
    replace(text, "{i}", number(1 + below(7)));
    replace(text, "{v}", "_gs_case_variables+" + number(16 * below(4)) + "(%rip)");
    if (row.writes) safe_ &= ~bit(reg);
    safe_ &= ~row.also_writes;
    if (row.kind == Row::AVX) flags_ |= NEEDS_AVX;
    return text;
  }

  /// A neighbour that can be moved, of 2 bytes at least.
  void guard(bool in_front) {
    switch (below(12)) {
      case 0: line(Text("j") + one_of(conditions) + " " + use_label()); return;
      case 1:
        if (!in_front) return line("jmp " + use_label());
        [[fallthrough]];
      default: line(fill(one_of(guards)));
    }
  }

  /// What may stand on the other side of an access: anything.
  void beside() {
    switch (below(7)) {
      case 0:
        line("call gs_case_helper");
        flags_ |= LEAVES_ADDRESS;
        safe_ &= ~bit(r11);
        return;
      case 1: place_labels(); return;
      case 2: return;
      case 3: return guard(true);
      default: line(fill(one_of(others)));
    }
  }

  void access(bool alone) {
    const Row& row = alone && one_in(12) ? one_of(companies) : one_in(3) ? accesses[below(2)] : one_of(accesses);
    line(fill(row, place(row.kind)));
  }

  /// An access, or two side by side, with a movable neighbour on one side and anything on the other.
  void site() {
    const bool in_front = one_in(3), alone = !one_in(4);
    beside();
    if (in_front) guard(true);
    access(alone);
    if (!alone) {
      if (one_in(2)) line(fill(between));
      access(alone);
    }
    if (!in_front) guard(false);
    beside();
    if (one_in(2)) place_labels();
  }

  /// Jumps into a row of three sites, by a table of distances in text, as compilers make it, of 4 or 8 bytes each, or
  /// by one of addresses. A site before the next label must leave what is behind the label alone.
  void jump_table() {
    const bool addresses = one_in(3), wide = one_in(3);
    const unsigned table = any(all_registers), target = any(all_registers & ~bit(table));
    const Text t = quad_name(table), x = quad_name(target), name = "Ltable" + number(number_) + "@";
    const Text entries[] = {new_label(), new_label(), new_label()};
    line("leaq " + name + "(%rip), " + t + "\n movl $" + number(below(3)) + ", " + long_name(target));
    line((addresses || wide ? "movq (" : "movslq (") + t + "," + x + (addresses || wide ? ",8), " : ",4), ") + x);
    if (!addresses) line("addq " + t + ", " + x);
    // The two forms' addresses differ: none may stay in a register.
    line("movq " + x + ", -8(%rsp)\n movl $16, " + long_name(table) + "\n movl $32, " + long_name(target));
    line("cmpl $16, " + long_name(target) + "\n jmp *-8(%rsp)");
    flags_ |= LEAVES_ADDRESS;
    line(addresses ? ".section __DATA,__const\n .p2align 3" : ".p2align 2\n .data_region jt32");
    label(name);
    for (const Text& to : entries) {
      line(addresses ? ".quad " + to : (wide ? ".quad " : ".long ") + to + "-" + name);
    }
    line(addresses ? ".text" : ".end_data_region");
    for (const Text& from : entries) {
      label(from);
      const bool in_front = one_in(2);
      if (in_front) guard(true);
      access(false);
      if (!in_front) guard(false);
    }
    place_labels();
  }

  unsigned number_;
  Text body_;
  unsigned labels_ = 0, flags_ = 0;
  std::vector<Text> pending_;
  std::uint32_t safe_ = all_registers;
};

constexpr const char* preamble = R"(# Written by make_gs_cases.
 .text
 .globl _il2cpp_init, _gs_cases, _gs_case_count, _gs_case_variables, _gs_case_thread
_gs_case_thread:
 jmp _pthread_self
_il2cpp_init:
 xorl %eax, %eax
 ret

# Puts -1 into r11 when it was called from a case, from where it stands, else 0.
gs_case_helper:
 movq (%rsp), %r11
 cmpq gs_case_range+8(%rip), %r11
 jae 1f
 cmpq %r11, gs_case_range(%rip)
1: sbbl %r11d, %r11d
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
  if (argc != 2) return std::fputs("usage: make_gs_cases OUT.S\n", stderr), 1;
  std::ofstream out(argv[1], std::ios::binary);
  Text table;
  out << preamble;
  for (unsigned i = 0; i < case_count; ++i) {
    const Case one(i);
    const Text name = "case" + std::to_string(i);
    out << name << "g:\n" << one.text('g') << name << "e:\n" << one.text('e');
    table += " .quad " + name + "g, " + name + "e, " + std::to_string(one.flags()) + "\n";
  }
  out << ending << "_gs_case_count: .quad " << case_count << "\n_gs_cases:\n" << table;
  if (out.flush()) return 0;
  std::perror(argv[1]);
  return 1;
}
