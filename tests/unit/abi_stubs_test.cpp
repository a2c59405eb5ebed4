// Generated stubs and the exports that make them: arguments, results, sharing, chunks, stack walks.
#include "abi/stubs.h"

#include <doctest/doctest.h>

#include <windows.h>

#include <algorithm>
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
void* const windows_code = reinterpret_cast<void*>(windows_function);

/// Game code that calls a callback with six arguments, compiled as such.
SYSV std::uint64_t game_calls(SYSV decltype(windows_function)* callback) { return callback(1, 2, 3, 4, 5, 6) + 1; }
void* const game_code = reinterpret_cast<void*>(game_calls);

}  // namespace

TEST_CASE("a stack walk crosses Windows code, game code and both kinds of stubs between them, with every argument") {
  void* callback = vlm_wrap_callback(windows_code);
  for (const unsigned count : {1u, 5u, 6u}) {  // stubs of three lengths
    CAPTURE(count);
    void* stub = vlm_wrap_sysv_function(game_code, count);
    Machine sent = patterned_machine();
    sent.registers[rcx] = reinterpret_cast<std::uint64_t>(callback);
    CHECK_EQ(call_win64_code(stub, sent).registers[rax], 0x3142);
    for (unsigned i = 0; i < 6; ++i) CHECK_EQ(windows_arguments[i], i + 1);
    for (const void* function : {windows_code, callback, game_code, reinterpret_cast<void*>(call_sysv), stub}) {
      CHECK(frame_of(walked, function) != nullptr);
    }
    const WalkedFrame* caller = frame_of(walked, reinterpret_cast<void*>(run_machine));
    REQUIRE(caller != nullptr);
    CHECK((caller->context.Rsi == sent.registers[rsi] && caller->context.Rdi == sent.registers[rdi]));
    for (int i = 6; i < 16; ++i) CHECK_EQ(std::memcmp(&caller->context.Xmm0 + i, sent.vectors[i], 16), 0);
    stub = vlm_wrap_sysv_function(reinterpret_cast<void*>(record_sysv_call), count);
    const Machine machine = call_win64_code(stub, sent);
    CHECK((machine.registers[rax] == recorded_results[0] && machine.vectors[0][0] == recorded_results[2]));
    for (unsigned i = 0; i < 6; ++i) {
      const std::uint64_t word = i < 4 ? sent.registers[win64_arguments[i]] : i < count ? sent.stack[i] : 0;
      CHECK_EQ(recorded_call.registers[sysv_arguments[i]], word);
      if (i < 4) CHECK_EQ(recorded_call.vectors[i][0], sent.vectors[i][0]);
    }
  }
}

// Fills the process's registry for good.
TEST_CASE("alone: the callback registry is filled" * doctest::skip()) {
  auto* targets = static_cast<std::byte*>(allocate_stub_memory(0x10000));
  void* stub = nullptr;
  for (unsigned i = 0; i < 45'000; ++i) {  // two chunks of stubs hold fewer
    std::byte* const target = targets + 8 * std::min(i, 1025u);
    static constexpr unsigned char code[] = {0x8D, 0x41, 0x01, 0xC3};  // lea eax, [rcx+1]; ret
    std::memcpy(target, code, sizeof code);
    stub = i < 1025 ? vlm_wrap_callback(target) : make_callback_stub(target);
    REQUIRE_EQ(vlm_unwrap_callback(stub), i < 1024 ? static_cast<void*>(target) : stub);
    DWORD64 image = 0;
    const auto* function = RtlLookupFunctionEntry(reinterpret_cast<std::uint64_t>(stub) + 40, &image, nullptr);
    REQUIRE((function && reinterpret_cast<void*>(image + function->BeginAddress) == stub));
    if (i % 1000 < 30) REQUIRE_EQ(reinterpret_cast<SYSV int (*)(int)>(stub)(6), 7);
  }
  passed_alone();
}

TEST_CASE("the callback after the 1024th works but is not remembered; stubs run on into new chunks") {
  CHECK(run_alone(L"alone: the callback registry is filled"));
}

TEST_CASE("pages near an image come one after the other until its arena is full") {
  constexpr std::uint64_t image_size = 0x12345, rounded = 0x20000;
  auto* region = static_cast<std::byte*>(VirtualAlloc(nullptr, rounded + hook_arena_size, MEM_RESERVE, PAGE_NOACCESS));
  REQUIRE(region != nullptr);
  const auto base = reinterpret_cast<std::uint64_t>(region);
  const int count = hook_arena_count;
  hook_arenas[hook_arena_count++] = {base, base + rounded, image_size, 0};
  CHECK((vlm_allocate_trampoline(region - 1) == nullptr && vlm_allocate_trampoline(region + image_size) == nullptr));
  for (unsigned i = 0; i < 4096; ++i) {
    auto* page = static_cast<std::byte*>(vlm_allocate_trampoline(region + i % image_size));
    REQUIRE_EQ(page, region + rounded + 4096 * i);
    page[4095] = std::byte{0xC3};
  }
  CHECK_EQ(vlm_allocate_trampoline(region), static_cast<void*>(nullptr));
  hook_arena_count = count;
  VirtualFree(region, 0, MEM_RELEASE);
}
