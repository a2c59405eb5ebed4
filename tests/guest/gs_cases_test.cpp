// Some thousand functions that Tessera patched do what the same functions do with plain memory. The image is what
// make_gs_cases wrote; it lies with this program and the patched library in a folder of its own.
//
//   gs_cases_test [expansion]     expansion: all 64 slots of the TEB are taken before the library is loaded
//
// Each case runs in both forms from the same registers, flags, red zone, stack and storage contents. Afterwards all of
// that, and the image's variables, must be the same.
#include <windows.h>

#include <cpuid.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <span>
#include <string>

#include "support/game.h"
#include "support/host_program.h"
#include "support/machine.h"

using namespace vlm::test;

namespace {

constexpr std::size_t storage_size = 4096;
constexpr std::uint64_t plain_storage = 0x20000000;  // where make_gs_cases puts it
constexpr std::size_t variables_size = 64;
enum CaseFlags : std::uint64_t { NEEDS_AVX = 1, LEAVES_ADDRESS = 2 };

struct Case {
  const void* gs_form;
  const void* expected_form;
  const char* text;
  std::uint64_t flags;
};

constexpr const char* switch_forms[] = {"O0", "O1", "O2", "O3", "O0_large", "O1_large", "O2_large", "O3_large"};

const char* running = "";

LONG CALLBACK name_case(EXCEPTION_POINTERS* exception) {
  std::printf("exception %lx at %p in case %s\n", exception->ExceptionRecord->ExceptionCode,
              exception->ExceptionRecord->ExceptionAddress, running);
  std::fflush(stdout);
  ExitProcess(1);
}

bool has_avx2() {
  unsigned a, b, c, d;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & bit_OSXSAVE) == 0 || (c & bit_FMA) == 0) return false;
  return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_AVX2) != 0;
}

/// The thread's game storage, found by what a patched function of the storage guest's kind would find: the only slot
/// of the TEB, or of its expansion array, with a pointer to 512 words behind a record of this thread.
std::byte* game_storage(bool expansion) {
  const auto slots = reinterpret_cast<std::byte***>(expansion ? __readgsqword(0x1780) : __readgsqword(0x30) + 0x1480);
  for (int i = 0; i < (expansion ? 1024 : 64); ++i) {
    auto* const words = reinterpret_cast<std::byte*>(slots[i]);
    MEMORY_BASIC_INFORMATION memory;
    if (words == nullptr || VirtualQuery(words, &memory, sizeof memory) == 0 || memory.State != MEM_COMMIT) continue;
    std::uint32_t thread_id;
    std::memcpy(&thread_id, words - 32, sizeof thread_id);  // ThreadRecord: 48 bytes, the id at 16
    if (thread_id == GetCurrentThreadId()) return words;
  }
  return nullptr;
}

std::uint64_t pattern(std::uint64_t number) {
  number = (number + 1) * 0x9E3779B97F4A7C15;
  number = (number ^ number >> 30) * 0xBF58476D1CE4E5B9;
  return number ^ number >> 27;
}

Machine fresh_machine(std::uint64_t flags) {
  Machine machine = patterned_machine();
  for (std::uint64_t i = 0; i < register_count; ++i) machine.registers[i] = 16 * (i + 1);
  machine.flags = flags;
  for (auto& vector : machine.vectors) {
    for (auto& word : vector) word = pattern(word);
  }
  return machine;
}

struct Outcome {
  Machine machine;
  std::byte storage[storage_size];
  std::byte variables[variables_size];
};

void run(Outcome& outcome, const void* code, std::byte* storage, std::byte* variables, std::uint64_t flags, bool avx) {
  for (std::uint64_t i = 0; i < storage_size / 8; ++i) {
    const std::uint64_t word = pattern(i);
    std::memcpy(storage + 8 * i, &word, 8);
  }
  std::memset(variables, 0x5A, variables_size);
  outcome.machine = fresh_machine(flags);
  run_machine(&outcome.machine, code, avx);
  std::memcpy(outcome.storage, storage, storage_size);
  std::memcpy(outcome.variables, variables, variables_size);
}

/// Says where two runs differ; false when they do not.
bool differ(const Case& one, const Outcome& found, const Outcome& expected) {
  if (std::memcmp(&found, &expected, sizeof found) == 0) return false;
  std::printf("case %s\n", one.text);
  const auto* const a = reinterpret_cast<const std::uint64_t*>(&found);
  const auto* const b = reinterpret_cast<const std::uint64_t*>(&expected);
  for (std::size_t i = 0; i < sizeof found / 8; ++i) {
    if (a[i] == b[i]) continue;
    std::printf("  %s %zu: %llx, expected %llx\n", i < std::size(register_names) ? register_names[i] : "word", i,
                static_cast<unsigned long long>(a[i]), static_cast<unsigned long long>(b[i]));
  }
  return true;
}

}  // namespace

HOST_PROGRAM(gs_cases) {
  const bool expansion = argc > 1 && std::strcmp(argv[1], "expansion") == 0;
  if (expansion) {
    while (TlsAlloc() < 63) {
    }
  }
  auto* const plain = static_cast<std::byte*>(
      VirtualAlloc(reinterpret_cast<void*>(plain_storage), storage_size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  if (plain == nullptr) return std::printf("cannot start: error %lu\n", GetLastError()), 1;
  load_library();
  start_game();
  const auto* const cases = static_cast<const Case*>(game_symbol("gs_cases"));
  const auto count = game_variable<std::uint64_t>("gs_case_count");
  auto* const variables = static_cast<std::byte*>(game_symbol("gs_case_variables"));
  std::byte* const storage = game_storage(expansion);
  if (storage == nullptr) return std::puts("the thread has no game storage"), 1;

  AddVectoredExceptionHandler(1, name_case);
  const bool avx = has_avx2();
  std::byte before[storage_size];
  std::memcpy(before, storage, storage_size);
  static Outcome found, expected;
  unsigned ran = 0, failures = 0;
  for (const Case& one : std::span(cases, count)) {
    if ((one.flags & NEEDS_AVX) != 0 && !avx) continue;
    ++ran;
    running = one.text;
    constexpr std::uint64_t clear = 0x202, all_set = 0x8D7 | clear;  // CF PF AF ZF SF OF, beside the interrupt flag
    for (const std::uint64_t flags : {clear, all_set}) {
      run(expected, one.expected_form, plain, variables, flags, avx);
      run(found, one.gs_form, storage, variables, flags, avx);
      if ((one.flags & LEAVES_ADDRESS) != 0) expected.machine.red_zone[15] = found.machine.red_zone[15];
      if (differ(one, found, expected) && ++failures == 20) break;
    }
    if (failures >= 20) break;
  }
  for (const char* const form : switch_forms) {
    running = form;
    for (std::uint64_t i = 0; i < storage_size / 8; ++i) {
      const std::uint64_t word = pattern(i);
      std::memcpy(plain + 8 * i, &word, 8);
      std::memcpy(storage + 8 * i, &word, 8);
    }
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
      const auto result = [&](const char* kind) {
        const auto name = std::string(kind) + "_switch_" + form;
        return call_game<std::uint64_t>(name.c_str(), seed);
      };
      if (result("gs") == result("plain")) continue;
      std::printf("the switches of %s differ with seed %llu\n", form, static_cast<unsigned long long>(seed));
      if (++failures >= 20) break;
    }
  }
  std::memcpy(storage, before, storage_size);
  std::printf("%u of %llu cases%s: %u failures\n", ran, static_cast<unsigned long long>(count),
              expansion ? " in the expansion slots" : "", failures);
  leave(failures == 0 && ran > 0 ? 0 : 1);
}
