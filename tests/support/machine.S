# See machine.h. Offsets: 0 registers, 120 flags, 128 vectors, 640 the 25 words around the return address.

        .macro  each_register action
        .set    at, 0
        .irp    register, rax, rcx, rdx, rbx, rbp, rsi, rdi, r8, r9, r10, r11, r12, r13, r14, r15
        \action \register, at
        .set    at, at + 8
        .endr
        .endm

        .macro  load register, at       # rdi, which points to the machine, comes last
        .ifnc   \register, rdi
        movq    \at(%rdi), %\register
        .endif
        .endm

        .macro  store register, at
        .ifnc   \register, rdi
        movq    %\register, \at(%rdi)
        .endif
        .endm

        .section .rdata,"dr"
        .p2align 4
        .globl  recorded_results
recorded_results:
        .quad   0x7e57000000000000, 0x7e57000000000002, 0x7e57f00000000000, 0x7e57f00000000001

        .bss
        .p2align 4
        .globl  recorded_call
recorded_call:
        .zero   840

        .text

#   rsp+0x60  caller's xmm6 .. xmm15    rsp+0x50  with_avx    rsp+0x48  code    rsp+0x40  machine
#   rsp+0x00  the eight words above the return address
        .globl  run_machine
        .p2align 4
        .seh_proc run_machine
run_machine:
        .irp    register, rbx, rbp, rdi, rsi, r12, r13, r14, r15
        pushq   %\register
        .seh_pushreg %\register
        .endr
        subq    $0x108, %rsp
        .seh_stackalloc 0x108
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movaps  %xmm\n, 0x60+16*(\n-6)(%rsp)
        .seh_savexmm %xmm\n, 0x60+16*(\n-6)
        .endr
        .seh_endprologue
        movq    %rcx, 0x40(%rsp)
        movq    %rdx, 0x48(%rsp)
        movb    %r8b, 0x50(%rsp)
        leaq    640(%rcx), %rsi
        leaq    -136(%rsp), %rdi
        movl    $25, %ecx
        rep     movsq
        movq    0x40(%rsp), %rdi
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movups  128+32*\n(%rdi), %xmm\n
        .endr
        testb   %r8b, %r8b
        jz      1f
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        vmovups 128+32*\n(%rdi), %ymm\n
        .endr
1:      leaq    -512(%rsp), %rsp        # below the red zone
        pushq   120(%rdi)
        popfq
        leaq    512(%rsp), %rsp
        each_register load
        movq    48(%rdi), %rdi
        callq   *0x48(%rsp)
        leaq    -512(%rsp), %rsp
        pushfq
        cld
        pushq   %rdi
        movq    0x40+512+16(%rsp), %rdi
        popq    48(%rdi)
        popq    120(%rdi)
        leaq    512(%rsp), %rsp
        each_register store
        cmpb    $0, 0x50(%rsp)
        je      2f
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        vmovups %ymm\n, 128+32*\n(%rdi)
        .endr
        vzeroupper
2:
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movups  %xmm\n, 128+32*\n(%rdi)
        .endr
        leaq    -136(%rsp), %rsi
        addq    $640, %rdi
        movl    $25, %ecx
        rep     movsq
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movaps  0x60+16*(\n-6)(%rsp), %xmm\n
        .endr
        addq    $0x108, %rsp
        .irp    register, r15, r14, r13, r12, rsi, rdi, rbp, rbx
        popq    %\register
        .endr
        retq
        .seh_endproc

        .macro  record register, at
        movq    %\register, recorded_call+\at(%rip)
        .endm

        .globl  record_sysv_call
        .p2align 4
record_sysv_call:
        each_register record
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movups  %xmm\n, recorded_call+128+32*\n(%rip)
        .endr
        .irp    i, 0, 1, 2, 3, 4, 5, 6, 7
        movq    8+8*\i(%rsp), %rax
        movq    %rax, recorded_call+640+8*(17+\i)(%rip)
        .endr
        .irp    n, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        pcmpeqd %xmm\n, %xmm\n
        .endr
        .irp    register, rcx, rsi, rdi, r8, r9, r10, r11
        movq    $-1, %\register
        .endr
        movq    recorded_results(%rip), %rax
        movq    recorded_results+8(%rip), %rdx
        movups  recorded_results+16(%rip), %xmm0
        retq
