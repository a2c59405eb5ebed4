// An image whose exports record the registers that they were called with, clobber every register that System V
// code may clobber, and return a value of their own. Made from the rows of the list of exports.
#include "host/il2cpp_types.h"

extern "C" {

/// Written by every export, read by the test: rdi, rsi, rdx, rcx, r8, r9 and the export's number.
uint64_t echo_record[7];

/// Set by an initializer that takes its time: whoever gets through the gate too early finds it zero.
volatile uint64_t echo_initialized;
[[gnu::constructor]] void initialize_slowly() {
  for (volatile unsigned i = 0; i < 100'000'000; i = i + 1) {
  }
  echo_initialized = 1;
}

#define RECORD_(name, number) \
  [[gnu::naked]] void name() { asm("movl $" #number ", %eax\n jmp _echo_registers"); }
#define RECORD(name, number) RECORD_(name, number)
#define IL2CPP_FORWARD(result, name, parameters, arguments) RECORD(name, __COUNTER__)
#define IL2CPP_LOCAL(result, name, parameters) RECORD(name, __COUNTER__)
#include "host/il2cpp_exports.def"

/// Returns 0xABCD000000000000 + the number of the export.
[[gnu::naked]] void echo_registers() {
  asm(R"(
    .set place, 0
    .irp register, rdi, rsi, rdx, rcx, r8, r9, rax
    movq %\register, _echo_record+place(%rip)
    .set place, place + 8
    .endr
    movabsq $0xABCD000000000000, %rcx
    addq %rcx, %rax
    .irp register, rdi, rsi, rdx, r8, r9, r10, r11
    movq $-1, %\register
    .endr
    .irp n, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
    pcmpeqd %xmm\n, %xmm\n
    .endr
    retq
  )");
}
}
