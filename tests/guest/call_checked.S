# call_checked: calls a Windows function with six 64-bit arguments and tells which registers it failed to keep.
#   rcx  function      rdx  six arguments
#   rax  result; call_checked_broken: bit 0 rbx, 1 rbp, 2 rsi, 3 rdi, 4-7 r12-r15, 8-17 xmm6-xmm15
#
#   rsp+0x000  shadow space, arguments five and six
#   rsp+0x040  xmm6-xmm15 of the caller
        .macro  check_register bit, register, pattern
        movabsq $\pattern, %rcx
        cmpq    %rcx, \register
        je      1f
        orl     $(1 << \bit), %edx
1:
        .endm
        .macro  check_xmm bit, register
        pcmpeqd %xmm0, \register
        pmovmskb \register, %ecx
        cmpl    $0xffff, %ecx
        je      1f
        orl     $(1 << \bit), %edx
1:
        .endm

        .text
        .globl  call_checked
        .seh_proc call_checked
call_checked:
        pushq   %rbx
        .seh_pushreg %rbx
        pushq   %rbp
        .seh_pushreg %rbp
        pushq   %rsi
        .seh_pushreg %rsi
        pushq   %rdi
        .seh_pushreg %rdi
        pushq   %r12
        .seh_pushreg %r12
        pushq   %r13
        .seh_pushreg %r13
        pushq   %r14
        .seh_pushreg %r14
        pushq   %r15
        .seh_pushreg %r15
        subq    $0xE8, %rsp
        .seh_stackalloc 0xE8
        .seh_endprologue
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movups  %xmm\n, 0x40 + (\n - 6) * 16(%rsp)
        .endr
        movq    %rcx, %rax
        movq    32(%rdx), %rcx
        movq    %rcx, 0x20(%rsp)
        movq    40(%rdx), %rcx
        movq    %rcx, 0x28(%rsp)
        movq    0(%rdx), %rcx
        movq    16(%rdx), %r8
        movq    24(%rdx), %r9
        movq    8(%rdx), %rdx
        movabsq $0x0b0b0b0b0b0b0b0b, %rbx
        movabsq $0x0505050505050505, %rbp
        movabsq $0x0606060606060606, %rsi
        movabsq $0x0707070707070707, %rdi
        movabsq $0x1212121212121212, %r12
        movabsq $0x1313131313131313, %r13
        movabsq $0x1414141414141414, %r14
        movabsq $0x1515151515151515, %r15
        pxor    %xmm6, %xmm6
        .irp    n, 7, 8, 9, 10, 11, 12, 13, 14, 15
        pxor    %xmm\n, %xmm\n
        .endr
        callq   *%rax
        xorl    %edx, %edx
        check_register 0, %rbx, 0x0b0b0b0b0b0b0b0b
        check_register 1, %rbp, 0x0505050505050505
        check_register 2, %rsi, 0x0606060606060606
        check_register 3, %rdi, 0x0707070707070707
        check_register 4, %r12, 0x1212121212121212
        check_register 5, %r13, 0x1313131313131313
        check_register 6, %r14, 0x1414141414141414
        check_register 7, %r15, 0x1515151515151515
        pxor    %xmm0, %xmm0
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        check_xmm \n + 2, %xmm\n
        .endr
        movl    %edx, call_checked_broken(%rip)
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movups  0x40 + (\n - 6) * 16(%rsp), %xmm\n
        .endr
        addq    $0xE8, %rsp
        popq    %r15
        popq    %r14
        popq    %r13
        popq    %r12
        popq    %rdi
        popq    %rsi
        popq    %rbp
        popq    %rbx
        retq
        .seh_endproc

        .bss
        .globl  call_checked_broken
call_checked_broken:
        .long   0
