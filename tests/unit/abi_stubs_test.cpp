// Generated stubs and the exports that make them: arguments, results, sharing, chunks, stack walks.
#include "abi/stubs.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <windows.h>

#include <cstring>
#include <vector>

#include "abi/entries.h"
#include "macho/load.h"
#include "run_alone.h"
#include "stack_walk.h"
#include "support/checked_call.h"
#include "vlm.h"

using namespace vlm;
using namespace vlm::test;

namespace {

std::uint64_t windows_arguments[6];
std::vector<WalkedFrame> walked;

std::uint64_t windows_function(std::uint64_t a, std::uint64_t b, std::uint64_t c, std::uint64_t d, std::uint64_t e,
                               std::uint64_t f) {
  const std::uint64_t all[] = {a, b, c, d, e, f};
  std::memcpy(windows_arguments, all, sizeof all);
  walked = walk_stack();
  return 0x3141;
}

template <class Function>
void* pointer(Function* function) {
  return reinterpret_cast<void*>(function);
}

/// Game code that calls a callback with six arguments, compiled as such.
SYSV std::uint64_t game_calls(std::uint64_t (*SYSV callback)(std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t,
                                                             std::uint64_t, std::uint64_t)) {
  return callback(1, 2, 3, 4, 5, 6) + 1;
}

}  // namespace

TEST_CASE("a stack walk crosses Windows code, game code and both kinds of stubs between them, with every argument") {
  void* callback = vlm_wrap_callback(pointer(windows_function));
  for (const unsigned count : {1u, 5u, 6u}) {  // stubs of three lengths
    CAPTURE(count);
    void* stub = vlm_wrap_sysv_function(pointer(game_calls), count);
    Machine sent = patterned_machine();
    sent.registers[rcx] = reinterpret_cast<std::uint64_t>(callback);
    CHECK_EQ(call_win64_code(stub, sent).registers[rax], 0x3142);
    for (unsigned i = 0; i < 6; ++i) CHECK_EQ(windows_arguments[i], i + 1);
    for (const void* function : {pointer(windows_function), callback, pointer(game_calls), pointer(call_sysv), stub}) {
      CHECK(frame_of(walked, function) != nullptr);
    }
    const WalkedFrame* caller = frame_of(walked, pointer(run_machine));
    REQUIRE(caller != nullptr);
    CHECK_EQ(caller->context.Rbx, sent.registers[rbx]);
    CHECK_EQ(caller->context.Rsi, sent.registers[rsi]);
    CHECK_EQ(caller->context.Rdi, sent.registers[rdi]);
    for (int i = 6; i < 16; ++i) CHECK_EQ(std::memcmp(&caller->context.Xmm0 + i, sent.vectors[i], 16), 0);
    call_win64_code(vlm_wrap_sysv_function(pointer(record_sysv_call), count), sent);
    CHECK_EQ(recorded_call.registers[r8], (count >= 5 ? sent.stack[4] : 0));
    CHECK_EQ(recorded_call.registers[r9], (count >= 6 ? sent.stack[5] : 0));
  }
}

TEST_CASE("a walk that starts inside a stub finds its caller after every instruction of the prologue") {
  void* const to_windows = make_callback_stub(pointer(windows_function));
  void* const to_game = make_sysv_function_stub(pointer(record_sysv_call), 6);
  const struct {
    void* stub;
    std::uint64_t rip;    // offset in the stub
    std::uint64_t depth;  // bytes from rsp there to the return address
    bool has_rbp;         // rbp is the frame register already
  } cases[] = {{to_windows, 0, 0, false},   {to_windows, 1, 8, false},    {to_windows, 4, 8, true},
               {to_windows, 8, 0x38, true}, {to_windows, 40, 0x38, true}, {to_game, 0, 0, false},
               {to_game, 4, 0x68, false},   {to_game, 80, 0x68, false}};
  for (const auto& c : cases) {
    CAPTURE(c.rip);
    CAPTURE(c.depth);
    std::uint64_t stack[32] = {};
    const std::size_t return_address = c.depth / 8;
    stack[return_address] = 0xCA11E9;
    if (return_address != 0) stack[return_address - 1] = 0xCA11E5;  // the caller's rbp, where it was pushed
    CONTEXT context = {};
    context.Rip = reinterpret_cast<std::uint64_t>(c.stub) + c.rip;
    context.Rsp = reinterpret_cast<std::uint64_t>(stack);
    if (c.has_rbp) context.Rbp = reinterpret_cast<std::uint64_t>(&stack[return_address - 1]);
    DWORD64 image = 0;
    RUNTIME_FUNCTION* function = RtlLookupFunctionEntry(context.Rip, &image, nullptr);
    REQUIRE(function != nullptr);
    void* handler_data;
    DWORD64 frame;
    RtlVirtualUnwind(UNW_FLAG_NHANDLER, image, context.Rip, function, &context, &handler_data, &frame, nullptr);
    CHECK_EQ(context.Rip, 0xCA11E9);
    CHECK_EQ(context.Rsp, reinterpret_cast<std::uint64_t>(&stack[return_address + 1]));
    if (c.has_rbp) CHECK_EQ(context.Rbp, 0xCA11E5);
  }
}

TEST_CASE("stubs run on into new chunks, all of them working and known to stack walks") {
  unsigned unknown = 0, wrong = 0;
  for (unsigned i = 0; i < 45'000; ++i) {  // two chunks hold fewer
    const auto stub = reinterpret_cast<std::uint64_t>(make_callback_stub(pointer(windows_function)));
    DWORD64 image = 0;
    const RUNTIME_FUNCTION* function = RtlLookupFunctionEntry(stub + 40, &image, nullptr);
    unknown +=
        function == nullptr || image + function->BeginAddress != stub || image + function->EndAddress != stub + 44;
    if (i % 1000 == 0) wrong += call_sysv_code(reinterpret_cast<void*>(stub)).registers[rax] != 0x3141;
  }
  CHECK_EQ(unknown + wrong, 0);
}

// Fills the process's registry for good.
TEST_CASE("alone: the callback registry is filled" * doctest::skip()) {
  auto* targets = static_cast<std::byte*>(allocate_stub_memory(0x10000));
  std::vector<void*> stubs;
  for (unsigned i = 0; i < 1025; ++i) {
    static constexpr unsigned char code[] = {0x8D, 0x41, 0x01, 0xC3};  // lea eax, [rcx+1]; ret
    std::memcpy(targets + 8 * i, code, sizeof code);
    stubs.push_back(vlm_wrap_callback(targets + 8 * i));
  }
  for (unsigned i = 0; i < 1024; ++i) REQUIRE_EQ(vlm_unwrap_callback(stubs[i]), static_cast<void*>(targets + 8 * i));
  REQUIRE_EQ(vlm_unwrap_callback(stubs[1024]), stubs[1024]);
  REQUIRE_EQ(reinterpret_cast<SYSV int (*)(int)>(stubs[1024])(6), 7);
  passed_alone();
}

TEST_CASE("the callback after the 1024th works but is not remembered") {
  CHECK(run_alone("alone: the callback registry is filled"));
}

TEST_CASE("pages near an image come one after the other until its arena is full") {
  constexpr std::uint64_t image_size = 0x12345, rounded = 0x20000;
  auto* region = static_cast<std::byte*>(VirtualAlloc(nullptr, rounded + hook_arena_size, MEM_RESERVE, PAGE_NOACCESS));
  REQUIRE(region != nullptr);
  const auto base = reinterpret_cast<std::uint64_t>(region);
  const int count = hook_arena_count;
  hook_arenas[hook_arena_count++] = {base, base + rounded, image_size, 0};

  CHECK_EQ(vlm_allocate_trampoline(region - 1), static_cast<void*>(nullptr));
  CHECK_EQ(vlm_allocate_trampoline(region + image_size), static_cast<void*>(nullptr));
  unsigned wrong = 0;
  for (unsigned i = 0; i < 4096; ++i) {
    auto* page = static_cast<std::byte*>(vlm_allocate_trampoline(region + i % image_size));
    wrong += page != region + rounded + 4096 * i;
    if (page != nullptr) page[4095] = std::byte{0xC3};
  }
  CHECK_EQ(wrong, 0);
  reinterpret_cast<void (*)()>(region + rounded + 4095)();
  CHECK_EQ(vlm_allocate_trampoline(region), static_cast<void*>(nullptr));

  hook_arena_count = count;
  VirtualFree(region, 0, MEM_RELEASE);
}
