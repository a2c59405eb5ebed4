# Where game code enters the unwinder, and how the unwinder goes back to it.

#include "abi/entry_macros.inc"
#include "cxx/unwind_context.h"

        .text

# throw_entry: captures what the caller's frame needs to be taken off, and calls \routine (Windows x64), which does not
# return.
#   in   rdi rsi rdx   the arguments, System V
#   out  rcx           UnwindContext of the caller as it would be after the return; rax and rdx in it are undefined
#        rdx r8 r9     the arguments
#
#   rbp+0x08  return address into the game
#   rbp+0x00  caller's rbp
#             up to 8 bytes of alignment
#   rsp+0x20  UnwindContext, 80 bytes
#   rsp+0x00  shadow space, 32 bytes
#define CAUGHT 0x20
        .macro  throw_entry name, routine
        begin   \name
        pushq   %rbp
        .seh_pushreg %rbp
        movq    %rsp, %rbp
        .seh_setframe %rbp, 0
        .seh_endprologue
        subq    $(CAUGHT + CONTEXT_SIZE), %rsp
        andq    $-16, %rsp
        movq    (%rbp), %rax
        leaq    16(%rbp), %rcx
        movq    8(%rbp), %r10
        movq    %rbx, CAUGHT+CONTEXT_RBX(%rsp)
        movq    %rax, CAUGHT+CONTEXT_RBP(%rsp)
        movq    %rcx, CAUGHT+CONTEXT_RSP(%rsp)
        movq    %r12, CAUGHT+CONTEXT_R12(%rsp)
        movq    %r13, CAUGHT+CONTEXT_R13(%rsp)
        movq    %r14, CAUGHT+CONTEXT_R14(%rsp)
        movq    %r15, CAUGHT+CONTEXT_R15(%rsp)
        movq    %r10, CAUGHT+CONTEXT_RIP(%rsp)
        leaq    CAUGHT(%rsp), %rcx
        movq    %rdx, %r9
        movq    %rdi, %rdx
        movq    %rsi, %r8
        callq   \routine
        ud2                             # the return address above belongs to this function
        .seh_endproc
        .endm

        throw_entry cxa_throw_entry, cxa_throw_from
        throw_entry cxa_rethrow_entry, cxa_rethrow_from
        throw_entry unwind_resume_entry, unwind_resume_from
        throw_entry rethrow_exception_entry, rethrow_exception_from

# resume_context: Windows x64. Goes on in the frame of an UnwindContext.
#   in   rcx  UnwindContext
        begin   resume_context
        .seh_endprologue
        movq    CONTEXT_RAX(%rcx), %rax
        movq    CONTEXT_RDX(%rcx), %rdx
        movq    CONTEXT_RBX(%rcx), %rbx
        movq    CONTEXT_RBP(%rcx), %rbp
        movq    CONTEXT_R12(%rcx), %r12
        movq    CONTEXT_R13(%rcx), %r13
        movq    CONTEXT_R14(%rcx), %r14
        movq    CONTEXT_R15(%rcx), %r15
        movq    CONTEXT_RIP(%rcx), %r10
        movq    CONTEXT_RSP(%rcx), %rsp
        jmpq    *%r10
        .seh_endproc
