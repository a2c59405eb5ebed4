// Game code that crashes, each function in a way of its own.
#include "darwin.h"

namespace {
constexpr uint64 page = 4096;
volatile int zero = 0;
}  // namespace

extern "C" {

int64 game_reads_null() { return *static_cast<volatile int*>(nullptr); }

void game_writes_nowhere() { *reinterpret_cast<volatile int*>(0x1234) = 1; }

int64 game_executes_data() {
  // A page of data for sure: some systems let the image's own data run.
  void* const data = mmap(nullptr, page, 3, 0x1002, -1, 0);
  mprotect(data, page, 1);
  reinterpret_cast<void (*)()>(data)();
  return 0;
}

int64 game_divides() {
  int quotient = 1;
  asm volatile("cltd\n\tidivl %1" : "+a"(quotient) : "m"(zero) : "edx");
  return quotient;
}

/// The stack pointer in memory of the game's own, 64 bytes below a page that cannot be read.
int64 game_breaks_its_stack() {
  auto* const memory = static_cast<uint8*>(mmap(nullptr, 64 * page, 3, 0x1002, -1, 0));
  mprotect(memory + 63 * page, page, 0);
  asm volatile("movq %0, %%rsp\n\txorl %%eax, %%eax\n\tmovl (%%rax), %%eax" ::"r"(memory + 63 * page - 64) : "memory");
  return 0;
}
}
