# void run_case(Machine* machine, void* code, bool with_avx): runs a System V function with every register, the flags,
# the red zone and the stack above the return address as `machine` says, and puts there what it leaves behind.
# Microsoft x64 in: rcx, rdx, r8. One at a time: what must survive the function is in variables.
#
#   machine  0 rax rcx rdx rbx rbp rsi rdi r8 ... r15 | 120 flags | 128 ymm0 ... ymm3 | 256 16 words below the
#            return address | 384 8 words above it

        .globl  run_case
run_case:
        pushq   %rbx
        pushq   %rbp
        pushq   %rsi
        pushq   %rdi
        pushq   %r12
        pushq   %r13
        pushq   %r14
        pushq   %r15
        subq    $0x108, %rsp            # 8 xmm registers, 8 words for the function to see, 8 to spare
        movups  %xmm6, 0x48(%rsp)
        movups  %xmm7, 0x58(%rsp)
        movq    %rcx, saved_machine(%rip)
        movq    %rdx, code_address(%rip)
        movb    %r8b, with_avx(%rip)
        movq    %rsp, saved_rsp(%rip)
        movq    %rcx, %rdi
        xorl    %ecx, %ecx
1:      movq    384(%rdi,%rcx,8), %rdx
        movq    %rdx, (%rsp,%rcx,8)
        incl    %ecx
        cmpl    $8, %ecx
        jne     1b
        leaq    -136(%rsp), %rax        # the 16 words below the place of the return address
        xorl    %ecx, %ecx
2:      movq    256(%rdi,%rcx,8), %rdx
        movq    %rdx, (%rax,%rcx,8)
        incl    %ecx
        cmpl    $16, %ecx
        jne     2b
        cmpb    $0, with_avx(%rip)
        je      3f
        vmovups 128(%rdi), %ymm0
        vmovups 160(%rdi), %ymm1
        vmovups 192(%rdi), %ymm2
        vmovups 224(%rdi), %ymm3
        jmp     4f
3:      movups  128(%rdi), %xmm0
        movups  160(%rdi), %xmm1
        movups  192(%rdi), %xmm2
        movups  224(%rdi), %xmm3
4:      leaq    -512(%rsp), %rsp
        pushq   120(%rdi)
        popfq
        leaq    512(%rsp), %rsp
        movq    0(%rdi), %rax
        movq    8(%rdi), %rcx
        movq    16(%rdi), %rdx
        movq    24(%rdi), %rbx
        movq    32(%rdi), %rbp
        movq    40(%rdi), %rsi
        movq    56(%rdi), %r8
        movq    64(%rdi), %r9
        movq    72(%rdi), %r10
        movq    80(%rdi), %r11
        movq    88(%rdi), %r12
        movq    96(%rdi), %r13
        movq    104(%rdi), %r14
        movq    112(%rdi), %r15
        movq    48(%rdi), %rdi
        callq   *code_address(%rip)
        leaq    -512(%rsp), %rsp
        pushfq
        cld
        pushq   %rdi
        movq    saved_machine(%rip), %rdi
        popq    48(%rdi)
        popq    120(%rdi)
        movq    %rax, 0(%rdi)
        movq    %rcx, 8(%rdi)
        movq    %rdx, 16(%rdi)
        movq    %rbx, 24(%rdi)
        movq    %rbp, 32(%rdi)
        movq    %rsi, 40(%rdi)
        movq    %r8, 56(%rdi)
        movq    %r9, 64(%rdi)
        movq    %r10, 72(%rdi)
        movq    %r11, 80(%rdi)
        movq    %r12, 88(%rdi)
        movq    %r13, 96(%rdi)
        movq    %r14, 104(%rdi)
        movq    %r15, 112(%rdi)
        cmpb    $0, with_avx(%rip)
        je      5f
        vmovups %ymm0, 128(%rdi)
        vmovups %ymm1, 160(%rdi)
        vmovups %ymm2, 192(%rdi)
        vmovups %ymm3, 224(%rdi)
        vzeroupper
        jmp     6f
5:      movups  %xmm0, 128(%rdi)
        movups  %xmm1, 160(%rdi)
        movups  %xmm2, 192(%rdi)
        movups  %xmm3, 224(%rdi)
6:      leaq    512(%rsp), %rsp
        subq    saved_rsp(%rip), %rsp   # 0, unless the function moved rsp
        movq    %rsp, %rdx
        movq    saved_rsp(%rip), %rsp
        xorq    %rdx, 48(%rdi)          # a moved rsp shows as a wrong rdi
        leaq    -136(%rsp), %rax
        xorl    %ecx, %ecx
7:      movq    (%rax,%rcx,8), %rdx
        movq    %rdx, 256(%rdi,%rcx,8)
        incl    %ecx
        cmpl    $16, %ecx
        jne     7b
        xorl    %ecx, %ecx
8:      movq    (%rsp,%rcx,8), %rdx
        movq    %rdx, 384(%rdi,%rcx,8)
        incl    %ecx
        cmpl    $8, %ecx
        jne     8b
        movups  0x48(%rsp), %xmm6
        movups  0x58(%rsp), %xmm7
        addq    $0x108, %rsp
        popq    %r15
        popq    %r14
        popq    %r13
        popq    %r12
        popq    %rdi
        popq    %rsi
        popq    %rbp
        popq    %rbx
        retq

        .bss
        .balign 8
saved_machine:
        .quad   0
saved_rsp:
        .quad   0
code_address:
        .quad   0
with_avx:
        .quad   0
