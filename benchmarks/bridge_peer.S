# The least that any bridge from Windows code to a System V function must do: move four integer arguments and keep
# rsi, rdi and xmm6-xmm15. The forwarders are measured against it.
#   in   rcx rdx r8 r9   Windows x64 order    bridge_peer_target  the System V function
#   out  rax
        .text
        .globl  bridge_peer
        .seh_proc bridge_peer
bridge_peer:
        pushq   %rsi
        .seh_pushreg %rsi
        pushq   %rdi
        .seh_pushreg %rdi
        subq    $0xA8, %rsp
        .seh_stackalloc 0xA8
        .seh_endprologue
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movaps  %xmm\n, (\n - 6) * 16(%rsp)
        .endr
        movq    %rcx, %rdi
        movq    %rdx, %rsi
        movq    %r8, %rdx
        movq    %r9, %rcx
        callq   *bridge_peer_target(%rip)
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movaps  (\n - 6) * 16(%rsp), %xmm\n
        .endr
        addq    $0xA8, %rsp
        popq    %rdi
        popq    %rsi
        retq
        .seh_endproc

        .bss
        .globl  bridge_peer_target
        .balign 8
bridge_peer_target:
        .quad   0
