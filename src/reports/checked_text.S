# Reading memory that may not be there. Whoever calls copy_checked_text has a handler for the fault at checked_text_read:
# it goes on at checked_text_fault (trace_ring.cpp).

#include "abi/entry_macros.inc"

        .text

# copy_checked_text: Windows x64.
#   in   rcx  to   rdx  from   r8  how many bytes at most
#   out  rax  how many were copied: as many as asked for, or all before the NUL; the complement
#             of that when the next one cannot be read
        begin   copy_checked_text
        .seh_endprologue
        xorl    %eax, %eax
1:      cmpq    %r8, %rax
        jae     2f
        .globl  checked_text_read
checked_text_read:
        movb    (%rdx,%rax), %r9b
        testb   %r9b, %r9b
        jz      2f
        movb    %r9b, (%rcx,%rax)
        incq    %rax
        jmp     1b
        .globl  checked_text_fault
checked_text_fault:
        notq    %rax
2:      retq
        .seh_endproc
