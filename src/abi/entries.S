# Entry code that no compiler can write: it reads registers that a calling convention does not name, or turns one
# convention's frame into the other's. See entries.h for what each entry is for.
#
# Conventions in the frame drawings: addresses grow upwards, the line at the bottom is rsp at the inner call. Entries
# reached from game code trust no stack alignment and so align rsp themselves; their frame register is rbp, which is
# also what their unwind data says, so whatever happens below it never matters to a stack walk.

#include "abi/entry_layout.h"
#include "abi/entry_macros.inc"

        .text

# The prologue of every entry with an aligned frame: rbp is the frame register, the frame has \size bytes and rsp is a
# multiple of 16. The alignment is below the frame register, where unwind data need not describe it.
        .macro  enter_aligned size
        pushq   %rbp
        .seh_pushreg %rbp
        movq    %rsp, %rbp
        .seh_setframe %rbp, 0
        .seh_endprologue
        subq    $\size, %rsp
        andq    $-16, %rsp
        .endm

# Stores the argument registers as a RegisterSaveArea at \at(%rsp), which is 16-byte aligned.
        .macro  save_arguments at
        movq    %rdi, \at(%rsp)
        movq    %rsi, \at+8(%rsp)
        movq    %rdx, \at+16(%rsp)
        movq    %rcx, \at+24(%rsp)
        movq    %r8, \at+32(%rsp)
        movq    %r9, \at+40(%rsp)
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7
        movaps  %xmm\n, \at+SAVE_AREA_XMM+16*\n(%rsp)
        .endr
        .endm

        .macro  restore_arguments at
        movq    \at(%rsp), %rdi
        movq    \at+8(%rsp), %rsi
        movq    \at+16(%rsp), %rdx
        movq    \at+24(%rsp), %rcx
        movq    \at+32(%rsp), %r8
        movq    \at+40(%rsp), %r9
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7
        movaps  \at+SAVE_AREA_XMM+16*\n(%rsp), %xmm\n
        .endr
        .endm

# trap_entry: game code called an import that has no implementation.
#   in   rax  TrapRecord, put there by the record stub
#   out  rax  what trap_unimplemented (Windows x64) returned
#
#   rbp+0x08  return address into the game
#   rbp+0x00  caller's rbp
#             up to 8 bytes of alignment
#   rsp+0x00  shadow space, 32 bytes
        begin   trap_entry
        enter_aligned 0x20
        movq    %rax, %rcx
        callq   trap_unimplemented
        leave
        retq
        .seh_endproc

# icall_entry: game code called a managed method or internal call that lives on the Windows side.
#   in   rax  IcallRecord, put there by the record stub; every System V argument register, stack arguments
#   out  rax, rdx, xmm0, xmm1 from the ManagedResult that dispatch_managed_call (Windows x64) filled
#
#   rbp+0x10  the caller's first stack argument
#   rbp+0x08  return address into the game
#   rbp+0x00  caller's rbp
#             alignment, unused
#   rsp+0xd0  ManagedResult, 32 bytes
#   rsp+0x20  RegisterSaveArea, 176 bytes
#   rsp+0x00  shadow space, 32 bytes
#define ICALL_REGISTERS 0x20
#define ICALL_RESULT (ICALL_REGISTERS + SAVE_AREA_SIZE)
        begin   icall_entry
        enter_aligned 0x120
        save_arguments ICALL_REGISTERS
        movq    %rax, %rcx
        leaq    ICALL_REGISTERS(%rsp), %rdx
        leaq    16(%rbp), %r8
        leaq    ICALL_RESULT(%rsp), %r9
        callq   dispatch_managed_call
        movq    ICALL_RESULT+MANAGED_RESULT_RAX(%rsp), %rax
        movq    ICALL_RESULT+MANAGED_RESULT_RDX(%rsp), %rdx
        movq    ICALL_RESULT+MANAGED_RESULT_XMM0(%rsp), %xmm0
        movq    ICALL_RESULT+MANAGED_RESULT_XMM1(%rsp), %xmm1
        leave
        retq
        .seh_endproc

# objc_null_method: answers a message that nobody implements, and every message to nil.
#   out  rax, rdx, xmm0, xmm1  zero, so that every System V result class reads as zero
        begin   objc_null_method
        .seh_endprologue
        xorl    %eax, %eax
        xorl    %edx, %edx
        xorps   %xmm0, %xmm0
        xorps   %xmm1, %xmm1
        retq
        .seh_endproc

# message_send: finds the method and jumps to it with every argument, the stack and the count of vector registers of
# a variadic call exactly as the sender left them; the method returns straight to the sender. A method that the cache
# has at hand is jumped to at once (entry_layout.h tells its slot); only another one is looked up.
#   in   \receiver, \selector  the registers that hold them; rax the variadic count
#
#   rbp+0x08  return address into the game
#   rbp+0x00  caller's rbp
#             alignment, unused
#   rsp+0xd0  rax
#   rsp+0x20  RegisterSaveArea, 176 bytes
#   rsp+0x00  shadow space, 32 bytes
#define SEND_REGISTERS 0x20
#define SEND_RAX (SEND_REGISTERS + SAVE_AREA_SIZE)
        .macro  message_send name, receiver, selector
        begin   \name
        testq   \receiver, \receiver
        jz      objc_null_method
        leaq    (\selector,\selector,8), %r10
        addq    (\receiver), %r10
        imull   $METHOD_CACHE_MULTIPLIER, %r10d, %r10d
        shrl    $METHOD_CACHE_SHIFT, %r10d
        leaq    objc_method_cache(%rip), %r11
        movq    (%r11,%r10,8), %r10
        movq    (\receiver), %r11
        cmpq    %r11, CACHED_METHOD_CLASS(%r10)
        jne     1f
        cmpq    \selector, CACHED_METHOD_SELECTOR(%r10)
        jne     1f
        jmpq    *CACHED_METHOD_IMPLEMENTATION(%r10)
1:      enter_aligned 0xe0
        save_arguments SEND_REGISTERS
        movq    %rax, SEND_RAX(%rsp)
        movq    \receiver, %rcx
        .ifnc   \selector, %rdx
        movq    \selector, %rdx
        .endif
        callq   objc_lookup
        movq    %rax, %r11
        restore_arguments SEND_REGISTERS
        movq    SEND_RAX(%rsp), %rax
        leave
        .byte   0x49, 0xff, 0xe3        # rex.W jmp *%r11: the one form that stack walkers know as the end of a function
        .seh_endproc
        .endm

        message_send objc_msgSend_entry, %rdi, %rsi
        message_send objc_msgSend_stret_entry, %rsi, %rdx

# trace_entry: game code called an import that is traced. Records the call and goes on to the implementation with every
# argument, the stack and the count of vector registers of a variadic call exactly as the caller left them.
#   in   r11  TracedImport, put there by the transparent stub
#
#   rbp+0x08  return address into the game
#   rbp+0x00  caller's rbp
#             alignment, unused
#   rsp+0xd8  r10
#   rsp+0xd0  rax
#   rsp+0x20  RegisterSaveArea, 176 bytes
#   rsp+0x00  shadow space, 32 bytes
#define TRACE_REGISTERS 0x20
#define TRACE_RAX (TRACE_REGISTERS + SAVE_AREA_SIZE)
#define TRACE_R10 (TRACE_RAX + 8)
        begin   trace_entry
        enter_aligned 0xe0
        save_arguments TRACE_REGISTERS
        movq    %rax, TRACE_RAX(%rsp)
        movq    %r10, TRACE_R10(%rsp)
        movq    %r11, %rcx
        leaq    TRACE_REGISTERS(%rsp), %rdx
        movq    8(%rbp), %r8
        callq   record_import_call
        movq    %rax, %r11
        restore_arguments TRACE_REGISTERS
        movq    TRACE_RAX(%rsp), %rax
        movq    TRACE_R10(%rsp), %r10
        leave
        .byte   0x49, 0xff, 0xe3        # as in message_send
        .seh_endproc

# variadic: turns a variadic System V call into a call of \body (System V) with a va_list.
#   in   \named integer or pointer arguments in their registers, then the unnamed ones wherever the ABI puts them
#   out  \list, the register of the argument after the named ones: the va_list
#
#   rbp+0x10  the caller's first stack argument: overflow_arg_area
#   rbp+0x08  return address into the game
#   rbp+0x00  caller's rbp
#             alignment, unused
#   rsp+0xb0  SysvVaList, 24 bytes
#   rsp+0x00  RegisterSaveArea, 176 bytes; the vector registers are stored whatever al says
        .macro  variadic name, body, named, list
        begin   \name
        enter_aligned 0xd0
        save_arguments 0
        movl    $8*\named, SAVE_AREA_SIZE+VA_LIST_GP_OFFSET(%rsp)
        movl    $SAVE_AREA_XMM, SAVE_AREA_SIZE+VA_LIST_FP_OFFSET(%rsp)
        leaq    16(%rbp), %rax
        movq    %rax, SAVE_AREA_SIZE+VA_LIST_OVERFLOW_ARG_AREA(%rsp)
        movq    %rsp, SAVE_AREA_SIZE+VA_LIST_REG_SAVE_AREA(%rsp)
        leaq    SAVE_AREA_SIZE(%rsp), \list
        callq   \body
        leave
        retq
        .seh_endproc
        .endm

        variadic snprintf_entry, vsnprintf_body, 3, %rcx
        variadic fprintf_entry, fprintf_body, 2, %rdx
        variadic sscanf_entry, sscanf_body, 2, %rdx
        variadic NSLog_entry, NSLog_body, 1, %rsi
        variadic open_entry, open_body, 2, %rdx
        variadic fcntl_entry, fcntl_body, 2, %rdx
        variadic ioctl_entry, ioctl_body, 2, %rdx
        variadic stringWithFormat_entry, stringWithFormat_body, 3, %rcx
        variadic initWithObjects_entry, initWithObjects_body, 3, %rcx

# setjmp_entry: System V. Remembers the caller so that longjmp_entry can return to it again.
#   in   rdi  jmp_buf (JumpBuffer)
#   out  eax  0
#   rsp+0x00  return address into the game; no frame
        begin   setjmp_entry
        .seh_endprologue
        movq    (%rsp), %rdx
        leaq    8(%rsp), %rcx
        movq    %rbx, JUMP_RBX(%rdi)
        movq    %rbp, JUMP_RBP(%rdi)
        movq    %rcx, JUMP_RSP(%rdi)
        movq    %r12, JUMP_R12(%rdi)
        movq    %r13, JUMP_R13(%rdi)
        movq    %r14, JUMP_R14(%rdi)
        movq    %r15, JUMP_R15(%rdi)
        movq    %rdx, JUMP_RIP(%rdi)
        xorl    %eax, %eax
        retq
        .seh_endproc

# longjmp_entry: System V. Returns from the setjmp_entry call that filled the buffer; nothing is unwound.
#   in   rdi  jmp_buf (JumpBuffer)   esi  the value
#   out  eax  the value, or 1 when it is 0
#   rsp+0x00  return address into the game, dropped; no frame
        begin   longjmp_entry
        .seh_endprologue
        movl    %esi, %eax
        testl   %eax, %eax
        jnz     1f
        incl    %eax
1:      movq    JUMP_RIP(%rdi), %rdx
        movq    JUMP_RBX(%rdi), %rbx
        movq    JUMP_RBP(%rdi), %rbp
        movq    JUMP_R12(%rdi), %r12
        movq    JUMP_R13(%rdi), %r13
        movq    JUMP_R14(%rdi), %r14
        movq    JUMP_R15(%rdi), %r15
        movq    JUMP_RSP(%rdi), %rsp
        jmpq    *%rdx
        .seh_endproc

# call_win64: Windows x64. Calls a Windows function whose signature is known only at run time.
#   in   rcx  result, two words   rdx  function   r8  argument words   r9  their count
#   out  rax  result
#
#   rbp+0x10  return address
#   rbp+0x08  caller's rbp
#   rbp+0x00  caller's rbx
#             alignment, unused
#   rsp+0x20  argument 5, 6, ... : the word with index i at rsp + 8 * i
#   rsp+0x00  shadow space, 32 bytes
        begin   call_win64
        pushq   %rbp
        .seh_pushreg %rbp
        pushq   %rbx
        .seh_pushreg %rbx
        movq    %rsp, %rbp
        .seh_setframe %rbp, 0
        .seh_endprologue
        movq    %rcx, %rbx
        movq    %rdx, %r10
        movq    %r8, %r11
        xorl    %ecx, %ecx
        movq    %r9, %rax
        subq    $4, %rax
        cmovbq  %rcx, %rax              # words beyond the fourth
        leaq    0x2f(,%rax,8), %rax
        andq    $-16, %rax
        subq    %rax, %rsp
        andq    $-16, %rsp
        movl    $4, %eax
        jmp     2f
1:      movq    (%r11,%rax,8), %rcx
        movq    %rcx, (%rsp,%rax,8)
        incq    %rax
2:      cmpq    %r9, %rax
        jb      1b
        movq    (%r11), %rcx
        movq    8(%r11), %rdx
        movq    16(%r11), %r8
        movq    24(%r11), %r9
        movq    %rcx, %xmm0
        movq    %rdx, %xmm1
        movq    %r8, %xmm2
        movq    %r9, %xmm3
        callq   *%r10
        movq    %rax, (%rbx)
        movq    %xmm0, 8(%rbx)
        movq    %rbx, %rax
        leaq    (%rbp), %rsp
        popq    %rbx
        popq    %rbp
        retq
        .seh_endproc

# call_sysv: Windows x64. Calls a game function, keeping what Windows code expects of a callee and System V does not.
#   in   rcx  function   rdx  six argument words   xmm0..xmm3 passed through
#   out  rax, xmm0 as the function left them
#
#   rsp+0xb8  return address
#   rsp+0xb0  caller's rdi
#   rsp+0xa8  caller's rsi
#   rsp+0xa0  alignment
#   rsp+0x00  caller's xmm6 .. xmm15, 16 bytes each
        begin   call_sysv
        pushq   %rdi
        .seh_pushreg %rdi
        pushq   %rsi
        .seh_pushreg %rsi
        subq    $0xa8, %rsp
        .seh_stackalloc 0xa8
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movaps  %xmm\n, 16*(\n-6)(%rsp)
        .seh_savexmm %xmm\n, 16*(\n-6)
        .endr
        .seh_endprologue
        movq    %rcx, %r11
        movq    %rdx, %r10
        movq    (%r10), %rdi
        movq    8(%r10), %rsi
        movq    16(%r10), %rdx
        movq    24(%r10), %rcx
        movq    32(%r10), %r8
        movq    40(%r10), %r9
        movl    $4, %eax                # a variadic function may find floating-point arguments in xmm0..xmm3
        callq   *%r11
        .irp    n, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        movaps  16*(\n-6)(%rsp), %xmm\n
        .endr
        addq    $0xa8, %rsp
        popq    %rsi
        popq    %rdi
        retq
        .seh_endproc
