// The hand-written entries: every register in, every register out, and stack walks across them.
#include "abi/entries.h"

#include <doctest/doctest.h>

#include <bit>
#include <cstring>
#include <string_view>
#include <vector>

#include "objc/dispatch.h"
#include "stack_walk.h"
#include "support/checked_call.h"

using namespace vlm;
using namespace vlm::test;

namespace {

// What the entries under test call, see abi_entries_copy.S. Each notes what reached it.
struct BodyCall {
  const char* body = "";
  std::uint64_t named[3] = {};
  SysvVaList list = {};
  std::uint64_t integers[8] = {};  // read from the list, alternating with the doubles
  double doubles[10] = {};
};
BodyCall body_call;
const void* trap_record;
struct {
  const void* receiver;
  const char* selector;
} lookup;
std::vector<WalkedFrame> walked;
bool walk_reached(const void* function) { return frame_of(walked, function) != nullptr; }

constexpr std::uint64_t body_result = 0x123456789ABCDEF0;

std::uint64_t note_body(const char* body, std::initializer_list<std::uint64_t> named, SysvVaList* list) {
  body_call = {body, {}, *list, {}, {}};
  std::copy(named.begin(), named.end(), body_call.named);
  SysvVaList copy = *list;
  for (auto& value : body_call.integers) value = copy.next<std::uint64_t>();
  copy = *list;
  for (auto& value : body_call.doubles) value = copy.next_double();
  walked = walk_stack();
  return body_result;
}

}  // namespace

extern "C" {

extern void* const test_entries[];

#define BODY(name, parameters, ...) \
  SYSV std::uint64_t test_##name##_body parameters { return note_body(#name, {__VA_ARGS__}, list); }
BODY(NSLog, (std::uint64_t a, SysvVaList* list), a)
BODY(fprintf, (std::uint64_t a, std::uint64_t b, SysvVaList* list), a, b)
BODY(vsnprintf, (std::uint64_t a, std::uint64_t b, std::uint64_t c, SysvVaList* list), a, b, c)

std::uint64_t test_trap_unimplemented(void* record) {
  trap_record = record;
  walked = walk_stack();
  return body_result;
}

std::atomic<const CachedMethod*> test_objc_method_cache[METHOD_CACHE_SLOTS];

const void* test_objc_lookup(void* receiver, const char* selector) {
  lookup = {receiver, selector};
  walked = walk_stack();
  return reinterpret_cast<const void*>(record_sysv_call);
}

}  // extern "C"

static void* const run = reinterpret_cast<void*>(run_machine);

TEST_CASE("a variadic entry hands over its named arguments and a list that yields the others in order") {
  static constexpr struct {
    const char* body;
    unsigned entry, named;
  } cases[] = {{"vsnprintf", 3, 3}, {"fprintf", 4, 2}, {"NSLog", 5, 1}};
  for (const auto& c : cases) {
    CAPTURE(c.body);
    Machine sent = patterned_machine();
    sent.registers[rax] = 0;  // the vector registers are taken whatever al says
    for (unsigned i = 0; i < 8; ++i) sent.vectors[i][0] = std::bit_cast<std::uint64_t>(i + 0.5);
    CHECK_EQ(call_sysv_code(test_entries[c.entry], sent).registers[rax], body_result);

    CHECK(std::string_view(body_call.body) == c.body);
    for (unsigned i = 0; i < 8; ++i) {
      const std::uint64_t word = i < 6 ? sent.registers[sysv_arguments[i]] : sent.stack[i - 6];
      CHECK_EQ(i < c.named ? body_call.named[i] : body_call.integers[i - c.named], word);
      CHECK_EQ(body_call.doubles[i], i + 0.5);
    }
    for (unsigned i = 0; i < 2; ++i) CHECK_EQ(std::bit_cast<std::uint64_t>(body_call.doubles[8 + i]), sent.stack[i]);
    CHECK((walk_reached(test_entries[c.entry]) && walk_reached(run)));
  }
}

TEST_CASE("the trap entry hands its record over and returns the handler's answer") {
  CHECK_EQ(call_sysv_code(test_entries[0]).registers[rax], body_result);
  CHECK_EQ(reinterpret_cast<std::uint64_t>(trap_record), patterned_machine().registers[rax]);
  CHECK(walk_reached(run));
}

TEST_CASE("a message reaches its method with every register and stack word as the sender left them") {
  // What the cache holds for the message: nothing of use, the same class with another selector, the other way round,
  // and the method itself.
  ObjcClass classes[2] = {};
  ObjcObject object{&classes[0]};
  const Selector selectors[2] = {"one", "two"};
  const CachedMethod slots[] = {{},
                                {&classes[0], selectors[1], nullptr, nullptr},
                                {&classes[1], selectors[0], nullptr, nullptr},
                                {&classes[0], selectors[0], reinterpret_cast<const void*>(record_sysv_call), nullptr}};
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
      CHECK((lookup.receiver == (looked_up ? &object : nullptr) &&
             lookup.selector == (looked_up ? selectors[0] : nullptr)));
      for (const Register each : {rdi, rsi, rdx, rcx, r8, r9, rax}) {  // rax: the variadic count
        CHECK_EQ(recorded_call.registers[each], sent.registers[each]);
      }
      for (unsigned i = 0; i < 8; ++i) CHECK_EQ(std::memcmp(recorded_call.vectors[i], sent.vectors[i], 16), 0);
      // Right only when the method was jumped to.
      CHECK_EQ(std::memcmp(recorded_call.stack, sent.stack, sizeof sent.stack), 0);
      const std::uint64_t results[] = {machine.registers[rax], machine.registers[rdx], machine.vectors[0][0],
                                       machine.vectors[0][1]};
      CHECK_EQ(std::memcmp(results, recorded_results, sizeof results), 0);
      CHECK(walk_reached(run));
    }
    Machine sent = patterned_machine();
    sent.registers[sysv_arguments[receiver]] = 0;
    const Machine machine = call_sysv_code(entry, sent);
    for (const auto& vector : {machine.vectors[0], machine.vectors[1]}) CHECK((vector[0] == 0 && vector[1] == 0));
    CHECK((machine.registers[rax] == 0 && machine.registers[rdx] == 0));
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

TEST_CASE("call_sysv passes six words and xmm0 to xmm3 and keeps what Windows code expects to be kept") {
  const std::uint64_t words[6] = {61, 62, 63, 64, 65, 66};
  Machine sent = patterned_machine();
  sent.registers[rcx] = reinterpret_cast<std::uint64_t>(record_sysv_call);
  sent.registers[rdx] = reinterpret_cast<std::uint64_t>(words);
  const Machine machine = call_win64_code(call_sysv, sent);
  for (unsigned i = 0; i < 6; ++i) CHECK_EQ(recorded_call.registers[sysv_arguments[i]], words[i]);
  for (unsigned i = 0; i < 4; ++i) CHECK_EQ(recorded_call.vectors[i][0], sent.vectors[i][0]);
  CHECK((machine.registers[rax] == recorded_results[0] && machine.vectors[0][0] == recorded_results[2]));
}
