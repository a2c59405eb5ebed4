// An image whose exports record the registers that they were called with, clobber every register that System V
// code may clobber, and return a value of their own. Made from the rows of the list of exports.
#include "host/il2cpp_types.h"

extern "C" {

/// Written by every export, read by the test: rdi, rsi, rdx, rcx, r8, r9 and the export's number.
uint64_t echo_record[7];

/// Set by an initializer that takes its time: whoever gets through the gate too early finds it zero.
volatile uint64_t echo_initialized;
}
namespace {
struct SlowInitializer {
  SlowInitializer() {
    for (volatile unsigned i = 0; i < 100'000'000; i = i + 1) {
    }
    echo_initialized = 1;
  }
} slow_initializer;
}  // namespace
extern "C" {

#define RECORD_(name, number) \
  [[gnu::naked]] void name() { asm("movl $" #number ", %eax\n jmp _echo_registers"); }
#define RECORD(name, number) RECORD_(name, number)
#define IL2CPP_FORWARD(result, name, parameters, arguments) RECORD(name, __COUNTER__)
#define IL2CPP_LOCAL(result, name, parameters) RECORD(name, __COUNTER__)
#include "host/il2cpp_exports.def"

/// Returns 0xABCD000000000000 + the number of the export.
[[gnu::naked]] void echo_registers() {
  asm(R"(
    movq %rdi, _echo_record+0(%rip)
    movq %rsi, _echo_record+8(%rip)
    movq %rdx, _echo_record+16(%rip)
    movq %rcx, _echo_record+24(%rip)
    movq %r8,  _echo_record+32(%rip)
    movq %r9,  _echo_record+40(%rip)
    movq %rax, _echo_record+48(%rip)
    movabsq $0xABCD000000000000, %rcx
    addq %rcx, %rax
    movq $-1, %rdi
    movq %rdi, %rsi
    movq %rdi, %rdx
    movq %rdi, %r8
    movq %rdi, %r9
    movq %rdi, %r10
    movq %rdi, %r11
    pcmpeqd %xmm0, %xmm0
    pcmpeqd %xmm1, %xmm1
    pcmpeqd %xmm2, %xmm2
    pcmpeqd %xmm3, %xmm3
    pcmpeqd %xmm4, %xmm4
    pcmpeqd %xmm5, %xmm5
    pcmpeqd %xmm6, %xmm6
    pcmpeqd %xmm7, %xmm7
    pcmpeqd %xmm8, %xmm8
    pcmpeqd %xmm9, %xmm9
    pcmpeqd %xmm10, %xmm10
    pcmpeqd %xmm11, %xmm11
    pcmpeqd %xmm12, %xmm12
    pcmpeqd %xmm13, %xmm13
    pcmpeqd %xmm14, %xmm14
    pcmpeqd %xmm15, %xmm15
    retq
  )");
}
}
