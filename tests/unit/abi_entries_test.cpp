// The hand-written entries: every register in, every register out, and stack walks across them.
#include "abi/entries.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <bit>
#include <cstring>
#include <string_view>
#include <vector>

#include "abi_probe.h"
#include "objc/dispatch.h"
#include "stack_walk.h"

using namespace vlm;

namespace {

/// Probe input in which every argument register and stack word has a value of its own.
SysvProbe patterned_probe() {
  SysvProbe probe = {};
  for (unsigned i = 0; i < 6; ++i) probe.gp[i] = 0x6700000000000000 + i;
  for (unsigned i = 0; i < 4; ++i) probe.stack[i] = 0x57AC000000000000 + 8 * i;
  for (unsigned i = 0; i < 8; ++i) {
    probe.xmm[i][0] = 0xF100000000000000 + i;
    probe.xmm[i][1] = 0xF200000000000000 + i;
  }
  probe.rax = 0xA1;
  return probe;
}

void check_kept(const SysvProbe& probe) {
  for (unsigned i = 0; i < 6; ++i) CHECK_EQ(probe.kept[i], probe_kept[i]);
}

void check_kept(const Win64Probe& probe) {
  static constexpr unsigned order[8] = {0, 1, 6, 7, 2, 3, 4, 5};  // rbx rbp rsi rdi r12 .. r15 in probe_kept
  for (unsigned i = 0; i < 8; ++i) CHECK_EQ(probe.kept[i], probe_kept[order[i]]);
  CHECK_EQ(std::memcmp(probe.kept_xmm, probe_kept_xmm, sizeof probe.kept_xmm), 0);
}

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
  const void* record;
  RegisterSaveArea registers;
  std::uint64_t stack[4];
} managed_call;
struct {
  const void* receiver;
  const char* selector;
} lookup;
std::vector<WalkedFrame> walked;

void note_body(const char* body, std::initializer_list<std::uint64_t> named, SysvVaList* list) {
  body_call = {body, {}, *list, {}, {}};
  std::copy(named.begin(), named.end(), body_call.named);
  SysvVaList copy = *list;
  for (auto& value : body_call.integers) value = copy.next<std::uint64_t>();
  copy = *list;
  for (auto& value : body_call.doubles) value = copy.next_double();
  walked = walk_stack();
}

constexpr std::uint64_t body_result = 0x123456789ABCDEF0;

}  // namespace

extern "C" {

#define TEST_ENTRY(name) void test_##name##_entry()
TEST_ENTRY(trap);
TEST_ENTRY(icall);
TEST_ENTRY(objc_msgSend);
TEST_ENTRY(objc_msgSend_stret);
TEST_ENTRY(snprintf);
TEST_ENTRY(fprintf);
TEST_ENTRY(sscanf);
TEST_ENTRY(NSLog);
TEST_ENTRY(open);
TEST_ENTRY(fcntl);
TEST_ENTRY(ioctl);
TEST_ENTRY(stringWithFormat);
TEST_ENTRY(initWithObjects);
void test_objc_null_method();

#define BODY_1(name)                                                           \
  SYSV std::uint64_t test_##name##_body(std::uint64_t a, SysvVaList* list) {   \
    note_body(#name, {a}, list);                                               \
    return body_result;                                                        \
  }
#define BODY_2(name)                                                                            \
  SYSV std::uint64_t test_##name##_body(std::uint64_t a, std::uint64_t b, SysvVaList* list) {   \
    note_body(#name, {a, b}, list);                                                             \
    return body_result;                                                                         \
  }
#define BODY_3(name)                                                                                             \
  SYSV std::uint64_t test_##name##_body(std::uint64_t a, std::uint64_t b, std::uint64_t c, SysvVaList* list) {   \
    note_body(#name, {a, b, c}, list);                                                                           \
    return body_result;                                                                                          \
  }
BODY_3(vsnprintf)
BODY_2(fprintf)
BODY_2(sscanf)
BODY_1(NSLog)
BODY_2(open)
BODY_2(fcntl)
BODY_2(ioctl)
BODY_3(stringWithFormat)
BODY_3(initWithObjects)

std::uint64_t test_trap_unimplemented(void* record) {
  trap_record = record;
  walked = walk_stack();
  return body_result;
}

void test_dispatch_managed_call(void* record, const RegisterSaveArea* registers, const std::uint64_t* stack,
                                ManagedResult* result) {
  managed_call.record = record;
  managed_call.registers = *registers;
  std::memcpy(managed_call.stack, stack, sizeof managed_call.stack);
  *result = {1001, 1002, 1003, 1004};
  walked = walk_stack();
}

std::atomic<const CachedMethod*> test_objc_method_cache[METHOD_CACHE_SLOTS];

const void* test_objc_lookup(void* receiver, const char* selector) {
  lookup = {receiver, selector};
  walked = walk_stack();
  return reinterpret_cast<const void*>(record_sysv_call);
}

}  // extern "C"

TEST_CASE("a variadic entry hands over its named arguments and a list that yields the others in order") {
  const struct {
    void (*entry)();
    const char* body;
    unsigned named;
  } cases[] = {
      {test_snprintf_entry, "vsnprintf", 3},
      {test_fprintf_entry, "fprintf", 2},
      {test_sscanf_entry, "sscanf", 2},
      {test_NSLog_entry, "NSLog", 1},
      {test_open_entry, "open", 2},
      {test_fcntl_entry, "fcntl", 2},
      {test_ioctl_entry, "ioctl", 2},
      {test_stringWithFormat_entry, "stringWithFormat", 3},
      {test_initWithObjects_entry, "initWithObjects", 3},
  };
  for (const auto& c : cases) {
    CAPTURE(c.body);
    SysvProbe probe = patterned_probe();
    probe.rax = 0;  // the vector registers are taken whatever al says
    for (unsigned i = 0; i < 8; ++i) probe.xmm[i][0] = std::bit_cast<std::uint64_t>(i + 0.5);
    sysv_probe(reinterpret_cast<void*>(c.entry), &probe);

    CHECK(std::string_view(body_call.body) == c.body);
    for (unsigned i = 0; i < c.named; ++i) CHECK_EQ(body_call.named[i], probe.gp[i]);
    CHECK_EQ(body_call.list.gp_offset, 8 * c.named);
    CHECK_EQ(body_call.list.fp_offset, 48);
    for (unsigned i = c.named; i < 6; ++i) CHECK_EQ(body_call.integers[i - c.named], probe.gp[i]);
    CHECK_EQ(body_call.integers[6 - c.named], probe.stack[0]);
    CHECK_EQ(body_call.integers[7 - c.named], probe.stack[1]);
    for (unsigned i = 0; i < 8; ++i) CHECK_EQ(body_call.doubles[i], i + 0.5);
    CHECK_EQ(std::bit_cast<std::uint64_t>(body_call.doubles[8]), probe.stack[0]);
    CHECK_EQ(std::bit_cast<std::uint64_t>(body_call.doubles[9]), probe.stack[1]);
    CHECK_EQ(probe.out_rax, body_result);
    check_kept(probe);
    CHECK(frame_of(walked, reinterpret_cast<void*>(c.entry)) != nullptr);
    CHECK(frame_of(walked, reinterpret_cast<void*>(sysv_probe)) != nullptr);
  }
}

TEST_CASE("a variable argument list aligns extended values and cuts integers to what is asked for") {
  alignas(16) std::byte save_area[SAVE_AREA_SIZE] = {};
  alignas(16) std::uint64_t overflow[6] = {11, 0, 33, 44, 55, 0};  // the extended value is at 16, not at 8
  const std::int32_t negative = -5;
  std::memcpy(save_area + 40, &negative, sizeof negative);
  SysvVaList list = {40, SAVE_AREA_SIZE, reinterpret_cast<std::byte*>(overflow), save_area};
  CHECK_EQ(list.next<std::int32_t>(), -5);  // the upper half of the register is not looked at
  CHECK_EQ(list.next<std::uint64_t>(), 11);
  const std::byte* extended = list.next_long_double();
  CHECK_EQ(static_cast<const void*>(extended), &overflow[2]);
  CHECK_EQ(list.next<std::uint64_t>(), 55);
}

TEST_CASE("the trap entry hands its record over and returns the handler's answer") {
  SysvProbe probe = patterned_probe();
  sysv_probe(reinterpret_cast<void*>(test_trap_entry), &probe);
  CHECK_EQ(reinterpret_cast<std::uint64_t>(trap_record), probe.rax);
  CHECK_EQ(probe.out_rax, body_result);
  check_kept(probe);
  CHECK(frame_of(walked, reinterpret_cast<void*>(sysv_probe)) != nullptr);
}

TEST_CASE("the managed-call entry passes every argument register and returns all four result words") {
  SysvProbe probe = patterned_probe();
  sysv_probe(reinterpret_cast<void*>(test_icall_entry), &probe);
  CHECK_EQ(reinterpret_cast<std::uint64_t>(managed_call.record), probe.rax);
  CHECK_EQ(std::memcmp(managed_call.registers.gp, probe.gp, sizeof probe.gp), 0);
  CHECK_EQ(std::memcmp(managed_call.registers.xmm, probe.xmm, sizeof probe.xmm), 0);
  CHECK_EQ(std::memcmp(managed_call.stack, probe.stack, sizeof probe.stack), 0);
  CHECK_EQ(probe.out_rax, 1001);
  CHECK_EQ(probe.out_rdx, 1002);
  CHECK_EQ(probe.out_xmm0[0], 1003);
  CHECK_EQ(probe.out_xmm1[0], 1004);
  check_kept(probe);
  CHECK(frame_of(walked, reinterpret_cast<void*>(sysv_probe)) != nullptr);
}

TEST_CASE("a message reaches its method with every register and stack word as the sender left them") {
  const struct {
    void (*entry)();
    unsigned receiver;  // index into gp; the selector follows
  } cases[] = {{test_objc_msgSend_entry, 0}, {test_objc_msgSend_stret_entry, 1}};
  // What the cache holds for the message: nothing of use, the same class with another selector, the other way round, and
  // the method itself.
  ObjcClass classes[2] = {};
  ObjcObject object{&classes[0]};
  const Selector selectors[2] = {"one", "two"};
  const auto method = reinterpret_cast<const void*>(record_sysv_call);
  const struct {
    CachedMethod cached;
    bool looked_up;
  } slots[] = {{{}, true},
               {{&classes[0], selectors[1], nullptr, nullptr}, true},
               {{&classes[1], selectors[0], nullptr, nullptr}, true},
               {{&classes[0], selectors[0], method, nullptr}, false}};
  for (auto& cached : test_objc_method_cache) cached = &slots[0].cached;
  auto& looked_at = test_objc_method_cache[method_cache_slot(&classes[0], selectors[0])];
  for (const auto& c : cases) for (const auto& slot : slots) {
    CAPTURE(c.receiver);
    looked_at = &slot.cached;
    lookup = {};
    SysvProbe probe = patterned_probe();
    probe.gp[c.receiver] = reinterpret_cast<std::uint64_t>(&object);
    probe.gp[c.receiver + 1] = reinterpret_cast<std::uint64_t>(selectors[0]);
    sysv_probe(reinterpret_cast<void*>(c.entry), &probe);
    CHECK_EQ(lookup.receiver, slot.looked_up ? static_cast<const void*>(&object) : nullptr);
    CHECK_EQ(lookup.selector, slot.looked_up ? selectors[0] : nullptr);
    // gp, stack, rax (the variadic count) and xmm: the stack words are right only when the method was jumped to.
    CHECK_EQ(std::memcmp(&recorded_call, &probe, offsetof(SysvProbe, out_rax)), 0);
    CHECK_EQ(probe.out_rax, recorded_results[0]);
    CHECK_EQ(probe.out_rdx, recorded_results[1]);
    CHECK_EQ(std::memcmp(probe.out_xmm0, &recorded_results[2], sizeof probe.out_xmm0), 0);
    check_kept(probe);
    CHECK(frame_of(walked, reinterpret_cast<void*>(sysv_probe)) != nullptr);

    lookup = {};
    probe = patterned_probe();
    probe.gp[c.receiver] = 0;
    sysv_probe(reinterpret_cast<void*>(c.entry), &probe);
    CHECK_EQ(lookup.selector, static_cast<const char*>(nullptr));
    for (const std::uint64_t word : {probe.out_rax, probe.out_rdx, probe.out_xmm0[0], probe.out_xmm0[1],
                                     probe.out_xmm1[0], probe.out_xmm1[1]}) {
      CHECK_EQ(word, 0);
    }
    check_kept(probe);
  }
}

TEST_CASE("longjmp returns its value, never 0, and the registers of the first return") {
  static constexpr struct {
    std::uint32_t value;
    std::uint64_t returned;
  } cases[] = {{0, 1}, {1, 1}, {42, 42}, {0xFFFFFFFF, 0xFFFFFFFF}};
  for (const auto& c : cases) {
    std::uint64_t buffer[9] = {};
    buffer[8] = 0x6A6A;  // the words behind the eight are the game's
    std::uint64_t kept[6];
    CHECK_EQ(jump_probe(reinterpret_cast<JumpBuffer*>(buffer), c.value, kept), c.returned);
    CHECK_EQ(std::memcmp(kept, probe_kept, sizeof kept), 0);
    CHECK_EQ(buffer[8], 0x6A6A);
  }
}

namespace {

std::uint64_t win64_arguments[7];
double win64_double;

double seven_arguments(std::uint64_t a, double b, std::uint64_t c, std::uint64_t d, std::uint64_t e, double f,
                       std::uint64_t g) {
  const std::uint64_t all[] = {a, std::bit_cast<std::uint64_t>(b), c, d, e, std::bit_cast<std::uint64_t>(f), g};
  std::memcpy(win64_arguments, all, sizeof all);
  walked = walk_stack();
  return win64_double = 2.5;
}
std::uint64_t no_arguments() { return 0x0A0A; }

}  // namespace

TEST_CASE("call_win64 passes integers and doubles at any position and returns both kinds of result") {
  std::uint64_t arguments[7];
  for (unsigned i = 0; i < 7; ++i) arguments[i] = 0x100 + 8 * i;
  arguments[1] = std::bit_cast<std::uint64_t>(-1.25);
  arguments[5] = std::bit_cast<std::uint64_t>(1e300);
  // Through the probe, so that the registers that call_win64 must keep are seen.
  std::uint64_t result[2] = {};
  Win64Probe probe = {};
  probe.arguments[0] = reinterpret_cast<std::uint64_t>(result);
  probe.arguments[1] = reinterpret_cast<std::uint64_t>(seven_arguments);
  probe.arguments[2] = reinterpret_cast<std::uint64_t>(arguments);
  probe.arguments[3] = 7;
  win64_probe(reinterpret_cast<void*>(call_win64), &probe);
  CHECK_EQ(std::memcmp(win64_arguments, arguments, sizeof arguments), 0);
  CHECK_EQ(probe.out_rax, reinterpret_cast<std::uint64_t>(result));
  CHECK_EQ(result[1], std::bit_cast<std::uint64_t>(2.5));
  check_kept(probe);
  const WalkedFrame* frame = frame_of(walked, reinterpret_cast<void*>(win64_probe));
  REQUIRE(frame != nullptr);
  CHECK_EQ(frame->context.Rbx, probe_kept[0]);
  CHECK_EQ(frame->context.Rbp, probe_kept[1]);

  call_win64(result, reinterpret_cast<void*>(no_arguments), arguments, 0);
  CHECK_EQ(result[0], 0x0A0A);
}

TEST_CASE("call_sysv passes six words and xmm0 to xmm3 and keeps what Windows code expects to be kept") {
  const std::uint64_t words[6] = {61, 62, 63, 64, 65, 66};
  Win64Probe probe = {};
  probe.arguments[0] = reinterpret_cast<std::uint64_t>(record_sysv_call);
  probe.arguments[1] = reinterpret_cast<std::uint64_t>(words);
  for (unsigned i = 0; i < 4; ++i) probe.xmm[i] = 0xF00 + i;
  win64_probe(reinterpret_cast<void*>(call_sysv), &probe);
  CHECK_EQ(std::memcmp(recorded_call.gp, words, sizeof words), 0);
  for (unsigned i = 0; i < 4; ++i) CHECK_EQ(recorded_call.xmm[i][0], 0xF00 + i);
  CHECK_EQ(probe.out_rax, recorded_results[0]);
  CHECK_EQ(probe.out_xmm0, recorded_results[2]);
  check_kept(probe);
}
