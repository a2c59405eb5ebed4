# See abi_probe.h.

        .section .rdata,"dr"
        .p2align 4
        .globl  probe_kept, probe_kept_xmm, recorded_results
probe_kept:                             # rbx rbp r12 r13 r14 r15 rsi rdi
        .quad   0xb00b000000000003, 0xb00b000000000005, 0xb00b00000000000c, 0xb00b00000000000d
        .quad   0xb00b00000000000e, 0xb00b00000000000f, 0xb00b000000000006, 0xb00b000000000007
probe_kept_xmm:
        .quad   0x5eed060000000006, 0x5eed060000000106, 0x5eed070000000007, 0x5eed070000000107
        .quad   0x5eed080000000008, 0x5eed080000000108, 0x5eed090000000009, 0x5eed090000000109
        .quad   0x5eed0a000000000a, 0x5eed0a000000010a, 0x5eed0b000000000b, 0x5eed0b000000010b
        .quad   0x5eed0c000000000c, 0x5eed0c000000010c, 0x5eed0d000000000d, 0x5eed0d000000010d
        .quad   0x5eed0e000000000e, 0x5eed0e000000010e, 0x5eed0f000000000f, 0x5eed0f000000010f
recorded_results:
        .quad   0x7e57000000000000, 0x7e57000000000002, 0x7e57f00000000000, 0x7e57f00000000001
        .p2align 4
garbage:
        .quad   0xdeaddeaddeaddead, 0xdeaddeaddeaddead

        .bss
        .p2align 4
        .globl  recorded_call
recorded_call:
        .zero   320

        .text

# Saves all that Windows code expects to be kept: eight pushes, \size bytes, xmm6 .. xmm15 at \xmm.
        .macro  keep_all size, xmm
        .irp    register, rbx, rbp, rdi, rsi, r12, r13, r14, r15
        pushq   %\register
        .seh_pushreg %\register
        .endr
        subq    $\size, %rsp
        .seh_stackalloc \size
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movaps  %xmm\n, \xmm+16*(\n-6)(%rsp)
        .seh_savexmm %xmm\n, \xmm+16*(\n-6)
        .endr
        .seh_endprologue
        .endm

        .macro  restore_all size, xmm
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movaps  \xmm+16*(\n-6)(%rsp), %xmm\n
        .endr
        addq    $\size, %rsp
        .irp    register, r15, r14, r13, r12, rsi, rdi, rbp, rbx
        popq    %\register
        .endr
        retq
        .endm

        .macro  load_kept
        movq    probe_kept+0(%rip), %rbx
        movq    probe_kept+8(%rip), %rbp
        movq    probe_kept+16(%rip), %r12
        movq    probe_kept+24(%rip), %r13
        movq    probe_kept+32(%rip), %r14
        movq    probe_kept+40(%rip), %r15
        .endm

#   rsp+0x30  caller's xmm6 .. xmm15      rsp+0x20  probe      rsp+0x00  four stack arguments
        .globl  sysv_probe
        .p2align 4
        .seh_proc sysv_probe
sysv_probe:
        keep_all 0xe8, 0x30
        movq    %rdx, 0x20(%rsp)
        movq    %rdx, %r10
        movq    %rcx, %r11
        .irp    i, 0, 1, 2, 3
        movq    48+8*\i(%r10), %rax
        movq    %rax, 8*\i(%rsp)
        .endr
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7
        movups  96+16*\n(%r10), %xmm\n
        .endr
        load_kept
        movq    (%r10), %rdi
        movq    8(%r10), %rsi
        movq    16(%r10), %rdx
        movq    24(%r10), %rcx
        movq    32(%r10), %r8
        movq    40(%r10), %r9
        movq    80(%r10), %rax
        callq   *%r11
        movq    0x20(%rsp), %r10
        movq    %rax, 224(%r10)
        movq    %rdx, 232(%r10)
        movups  %xmm0, 240(%r10)
        movups  %xmm1, 256(%r10)
        movq    %rbx, 272(%r10)
        movq    %rbp, 280(%r10)
        movq    %r12, 288(%r10)
        movq    %r13, 296(%r10)
        movq    %r14, 304(%r10)
        movq    %r15, 312(%r10)
        restore_all 0xe8, 0x30
        .seh_endproc

#   rsp+0x50  caller's xmm6 .. xmm15      rsp+0x40  probe      rsp+0x20  four stack arguments     rsp+0x00  shadow space
        .globl  win64_probe
        .p2align 4
        .seh_proc win64_probe
win64_probe:
        keep_all 0xf8, 0x50
        movq    %rdx, 0x40(%rsp)
        movq    %rdx, %r10
        movq    %rcx, %r11
        .irp    i, 4, 5, 6, 7
        movq    8*\i(%r10), %rax
        movq    %rax, 8*\i(%rsp)
        .endr
        .irp    n, 0, 1, 2, 3
        movq    64+8*\n(%r10), %xmm\n
        .endr
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movaps  probe_kept_xmm+16*(\n-6)(%rip), %xmm\n
        .endr
        load_kept
        movq    probe_kept+48(%rip), %rsi
        movq    probe_kept+56(%rip), %rdi
        movq    (%r10), %rcx
        movq    8(%r10), %rdx
        movq    16(%r10), %r8
        movq    24(%r10), %r9
        callq   *%r11
        movq    0x40(%rsp), %r10
        movq    %rax, 96(%r10)
        movq    %xmm0, 104(%r10)
        movq    %rbx, 112(%r10)
        movq    %rbp, 120(%r10)
        movq    %rsi, 128(%r10)
        movq    %rdi, 136(%r10)
        movq    %r12, 144(%r10)
        movq    %r13, 152(%r10)
        movq    %r14, 160(%r10)
        movq    %r15, 168(%r10)
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movups  %xmm\n, 176+16*(\n-6)(%r10)
        .endr
        restore_all 0xf8, 0x50
        .seh_endproc

        .globl  record_sysv_call
        .p2align 4
record_sysv_call:
        leaq    recorded_call(%rip), %r10
        movq    %rdi, (%r10)
        movq    %rsi, 8(%r10)
        movq    %rdx, 16(%r10)
        movq    %rcx, 24(%r10)
        movq    %r8, 32(%r10)
        movq    %r9, 40(%r10)
        movq    %rax, 80(%r10)
        .irp    i, 0, 1, 2, 3
        movq    8+8*\i(%rsp), %rax
        movq    %rax, 48+8*\i(%r10)
        .endr
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7
        movups  %xmm\n, 96+16*\n(%r10)
        .endr
        .irp    n, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movaps  garbage(%rip), %xmm\n
        .endr
        .irp    register, rcx, rsi, rdi, r8, r9, r10, r11
        movq    garbage(%rip), %\register
        .endr
        movq    recorded_results(%rip), %rax
        movq    recorded_results+8(%rip), %rdx
        movups  recorded_results+16(%rip), %xmm0
        retq

#   rsp+0x10  where to store   rsp+0x08  value   rsp+0x00  buffer
        .globl  jump_probe
        .p2align 4
jump_probe:
        .irp    register, rbx, rbp, r12, r13, r14, r15
        pushq   %\register
        .endr
        subq    $0x28, %rsp
        movq    %rdi, (%rsp)
        movq    %rsi, 8(%rsp)
        movq    %rdx, 16(%rsp)
        load_kept
        callq   setjmp_entry
        testl   %eax, %eax
        jnz     1f
        movq    (%rsp), %rdi
        movq    8(%rsp), %rsi
        .irp    register, rbx, rbp, r12, r13, r14, r15
        movq    garbage(%rip), %\register
        .endr
        subq    $0x40, %rsp
        callq   longjmp_entry
        ud2
1:      movq    16(%rsp), %rdx
        movq    %rbx, (%rdx)
        movq    %rbp, 8(%rdx)
        movq    %r12, 16(%rdx)
        movq    %r13, 24(%rdx)
        movq    %r14, 32(%rdx)
        movq    %r15, 40(%rdx)
        addq    $0x28, %rsp
        .irp    register, r15, r14, r13, r12, rbp, rbx
        popq    %\register
        .endr
        retq
