// The hand-written entries: every register in, every register out, and stack walks across them.
#include "abi/entries.h"

#include <doctest/doctest.h>

#include <bit>
#include <cstring>
#include <utility>
#include <vector>

#include "objc/dispatch.h"
#include "stack_walk.h"
#include "support/checked_call.h"

using namespace vlm;
using namespace vlm::test;

namespace {

// What the entries under test call, see abi_entries_copy.S, notes what reached it.
const void* trap_record;
std::pair<const void*, const void*> lookup;  // receiver and selector
std::uint64_t listed_words[8];               // the first the named one, the others read from the list
double listed_doubles[10];
std::vector<WalkedFrame> walked;

constexpr std::uint64_t body_result = 0x123456789ABCDEF0;

}  // namespace

extern "C" {

extern void* const test_entries[];

SYSV std::uint64_t test_NSLog_body(std::uint64_t named, SysvVaList* list) {
  SysvVaList copy = *list;
  for (auto& word : listed_words) word = &word == listed_words ? named : copy.next<std::uint64_t>();
  for (auto& value : listed_doubles) value = list->next_double();
  return body_result;
}

std::uint64_t test_trap_unimplemented(void* record) {
  trap_record = record;
  return body_result;
}

std::atomic<const CachedMethod*> test_objc_method_cache[METHOD_CACHE_SLOTS];

const void* test_objc_lookup(void* receiver, const char* selector) {
  lookup = {receiver, selector};
  walked = walk_stack();
  return reinterpret_cast<const void*>(record_sysv_call);
}

}  // extern "C"

TEST_CASE("a variadic entry hands over its named argument and a list that yields the others in order") {
  Machine sent = patterned_machine();
  sent.registers[rax] = 0;  // the vector registers are taken whatever al says
  for (unsigned i = 0; i < 8; ++i) sent.vectors[i][0] = std::bit_cast<std::uint64_t>(i + 0.5);
  CHECK_EQ(call_sysv_code(test_entries[3], sent).registers[rax], body_result);
  for (unsigned i = 0; i < 8; ++i) {
    CHECK_EQ(listed_words[i], i < 6 ? sent.registers[sysv_arguments[i]] : sent.stack[i - 6]);
    CHECK_EQ(listed_doubles[i], i + 0.5);
  }
  CHECK_EQ(std::memcmp(&listed_doubles[8], sent.stack, 16), 0);
}

TEST_CASE("the trap entry hands its record over and returns the handler's answer") {
  CHECK_EQ(call_sysv_code(test_entries[0]).registers[rax], body_result);
  CHECK_EQ(reinterpret_cast<std::uint64_t>(trap_record), patterned_machine().registers[rax]);
}

TEST_CASE("a message reaches its method with every register and stack word as the sender left them") {
  // What the cache holds for the message: the same class with another selector, the other way round, the method itself.
  ObjcClass classes[2] = {};
  ObjcObject object{&classes[0]};
  const Selector selectors[2] = {"one", "two"};
  const auto method = reinterpret_cast<const void*>(record_sysv_call);
  const CachedMethod slots[] = {{&classes[0], selectors[1], nullptr, nullptr},
                                {&classes[1], selectors[0], nullptr, nullptr},
                                {&classes[0], selectors[0], method, nullptr}};
  for (auto& cached : test_objc_method_cache) cached = &slots[0];
  auto& looked_at = test_objc_method_cache[method_cache_slot(&classes[0], selectors[0])];
  for (const unsigned receiver : {0, 1}) {  // index into the argument registers; the selector follows
    void* const entry = test_entries[1 + receiver];
    for (const auto& slot : slots) {
      CAPTURE(receiver);
      CAPTURE(&slot - slots);
      looked_at = &slot;
      lookup = {};
      Machine sent = patterned_machine();
      sent.registers[sysv_arguments[receiver]] = reinterpret_cast<std::uint64_t>(&object);
      sent.registers[sysv_arguments[receiver + 1]] = reinterpret_cast<std::uint64_t>(selectors[0]);
      const Machine machine = call_sysv_code(entry, sent);
      const bool looked_up = slot.implementation == nullptr;
      CHECK((lookup == (looked_up ? decltype(lookup){&object, selectors[0]} : decltype(lookup){})));
      for (const Register each : {rdi, rsi, rdx, rcx, r8, r9, rax}) {  // rax: the variadic count
        CHECK_EQ(recorded_call.registers[each], sent.registers[each]);
      }
      for (unsigned i = 0; i < 8; ++i) CHECK_EQ(std::memcmp(recorded_call.vectors[i], sent.vectors[i], 16), 0);
      // Right only when the method was jumped to.
      CHECK_EQ(std::memcmp(recorded_call.stack, sent.stack, sizeof sent.stack), 0);
      const auto& [rax_word, rdx_word, low, high] = recorded_results;
      CHECK((machine.registers[rax] == rax_word && machine.registers[rdx] == rdx_word));
      CHECK((machine.vectors[0][0] == low && machine.vectors[0][1] == high));
      CHECK(frame_of(walked, reinterpret_cast<void*>(run_machine)) != nullptr);
    }
  }
}

// void jump_back(JumpBuffer*, std::uint32_t value): setjmp_entry, then longjmp_entry from a deeper frame with other
// contents in every register. Leaves the registers, and eax, as they are after the second return.
asm(R"(
jump_back:
  pushq %rdi
  pushq %rsi
  subq $8, %rsp
  callq setjmp_entry
  testl %eax, %eax
  jnz 1f
  movq 16(%rsp), %rdi
  movq 8(%rsp), %rsi
  .irp register, rax, rcx, rdx, rbx, rbp, r8, r9, r10, r11, r12, r13, r14, r15
  movq $-1, %\register
  .endr
  subq $0x40, %rsp
  callq longjmp_entry
1: addq $24, %rsp
  retq
)");
extern "C" void jump_back();

TEST_CASE("longjmp returns its value, never 0, and the registers of the first return") {
  for (const std::uint64_t value : {0ull, 1ull, ~0ull}) {
    std::uint64_t buffer[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0x6A6A};  // the words behind the eight are the game's
    Machine sent = patterned_machine();
    sent.registers[rdi] = reinterpret_cast<std::uint64_t>(buffer);
    sent.registers[rsi] = value;
    CHECK_EQ(call_sysv_code(jump_back, sent).registers[rax], value == 0 ? 1 : value & 0xFFFFFFFF);
    CHECK_EQ(buffer[8], 0x6A6A);
  }
}
