// Some thousand functions that Tessera patched do what the same functions do with plain memory. The image is what
// make_gs_cases wrote; it lies with the patched library in a folder of its own.
//
//   gs_cases [expansion]     expansion: all 64 slots of the TEB are taken before the library is loaded
//
// Each case runs in both forms from the same registers, flags, red zone, stack and storage contents. Afterwards all of
// that, and the image's variables, must be the same.
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "support/game.h"
#include "support/host_program.h"
#include "support/machine.h"

using namespace vlm::test;

namespace {

constexpr std::size_t storage_words = 512, variables_words = 8;
constexpr std::uint64_t plain_storage = 0x20000000;  // where make_gs_cases puts it
constexpr std::size_t storage_in_thread = 48;        // behind the pthread_t
enum CaseFlags : std::uint64_t { NEEDS_AVX = 1, LEAVES_ADDRESS = 2 };

struct Case {
  const void* gs_form;
  const void* expected_form;
  std::uint64_t flags;
};

std::uint64_t running;  // a number in cases.S
int failures = 0;

LONG CALLBACK name_case(EXCEPTION_POINTERS* exception) {
  std::printf("exception %lx in case %llu\n", exception->ExceptionRecord->ExceptionCode, running);
  leave(1);
}

std::uint64_t pattern(std::uint64_t number) {
  number = (number + 1) * 0x9E3779B97F4A7C15;
  number = (number ^ number >> 30) * 0xBF58476D1CE4E5B9;
  return number ^ number >> 27;
}

void fill(std::uint64_t* storage) {
  for (std::uint64_t i = 0; i < storage_words; ++i) storage[i] = pattern(i);
}

struct Outcome {
  Machine machine;
  std::uint64_t storage[storage_words], variables[variables_words];
};

void run(Outcome& outcome, const void* code, std::uint64_t* storage, std::uint64_t* variables, std::uint64_t flags,
         bool avx) {
  fill(storage);
  std::fill_n(variables, variables_words, 0x5A5A5A5A5A5A5A5A);
  outcome.machine = patterned_machine();
  for (std::uint64_t i = 0; i < register_count; ++i) outcome.machine.registers[i] = 16 * (i + 1);
  outcome.machine.flags = flags;
  for (auto& vector : outcome.machine.vectors) std::ranges::transform(vector, vector, pattern);
  run_machine(&outcome.machine, code, avx);
  std::copy_n(storage, storage_words, outcome.storage);
  std::copy_n(variables, variables_words, outcome.variables);
}

}  // namespace

HOST_PROGRAM(gs_cases) {
  if (argc > 1 && std::strcmp(argv[1], "expansion") == 0) {
    while (TlsAlloc() < 63) {
    }
  }
  auto* const plain = static_cast<std::uint64_t*>(VirtualAlloc(
      reinterpret_cast<void*>(plain_storage), 8 * storage_words, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  if (plain == nullptr) return std::printf("cannot start: error %lu\n", GetLastError()), 1;
  load_library();
  start_game();
  const auto* const cases = static_cast<const Case*>(game_symbol("gs_cases"));
  const auto count = game_variable<std::uint64_t>("gs_case_count");
  auto* const variables = static_cast<std::uint64_t*>(game_symbol("gs_case_variables"));
  auto* const storage = reinterpret_cast<std::uint64_t*>(call_game<std::byte*>("gs_case_thread") + storage_in_thread);

  AddVectoredExceptionHandler(1, name_case);
  const bool avx = IsProcessorFeaturePresent(PF_AVX2_INSTRUCTIONS_AVAILABLE);
  static Outcome found, expected;
  for (running = 0; running < count; ++running) {
    const Case& one = cases[running];
    if ((one.flags & NEEDS_AVX) != 0 && !avx) continue;
    constexpr std::uint64_t clear = 0x202, all_set = 0x8D7 | clear;  // CF PF AF ZF SF OF, beside the interrupt flag
    for (const std::uint64_t flags : {clear, all_set}) {
      run(expected, one.expected_form, plain, variables, flags, avx);
      run(found, one.gs_form, storage, variables, flags, avx);
      if ((one.flags & LEAVES_ADDRESS) != 0) expected.machine.red_zone[15] = found.machine.red_zone[15];
      if (std::memcmp(&found, &expected, sizeof found) == 0) continue;
      const auto* const words = reinterpret_cast<const std::uint64_t*>(&found);
      const auto [at, wanted] =
          std::mismatch(words, words + sizeof found / 8, reinterpret_cast<const std::uint64_t*>(&expected));
      std::printf("case %llu: word %td of the outcome is %llx, expected %llx\n", running, at - words, *at, *wanted);
      if (++failures == 20) leave(1);
    }
  }
  for (const std::string form : {"O0", "O1", "O2", "O3", "O0_large", "O1_large", "O2_large", "O3_large"}) {
    fill(plain);
    fill(storage);
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
      const auto result = [&](const std::string& kind) {
        return call_game<std::uint64_t>((kind + "_switch_" + form).c_str(), seed);
      };
      if (result("gs") == result("plain")) continue;
      std::printf("the switches of %s differ with seed %llu\n", form.c_str(), seed);
      ++failures;
    }
  }
  std::printf("%llu cases%s: %d failures\n", count, avx ? "" : " without AVX", failures);
  leave(failures == 0 && count > 0 ? 0 : 1);
}
