// A function for every frame that compact unwind information can describe: the saved registers in every choice and
// order, behind rbp, with the size of the frame in its encoding, or in its code. Each keeps its registers, fills them
// with its own values and throws. The assembler makes the encodings.
        .text

// Where each register lies, the lowest address first: the assembler takes their order from this.
        .macro  tell_saved at, name, second, others:vararg
        .ifnb   \second
        tell_saved \at + 16, \others
        .cfi_offset %\second, -(\at) - 8
        .endif
        .ifnb   \name
        .cfi_offset %\name, -(\at)
        .endif
        .endm

        .macro  case mode, registers:vararg
        .p2align 4
case_\@:
        .cfi_startproc
        .set    cfa_offset, 8
        .ifc    \mode, behind_rbp
        pushq   %rbp
        .set    cfa_offset, 16
        .cfi_def_cfa_offset cfa_offset
        .cfi_offset %rbp, -16
        movq    %rsp, %rbp
        .cfi_def_cfa_register %rbp
        .endif
        .set    first_saved_at, cfa_offset + 8
        .irp    name, \registers
        .ifnb   \name
        pushq   %\name
        .set    cfa_offset, cfa_offset + 8
        .ifnc   \mode, behind_rbp
        .cfi_def_cfa_offset cfa_offset
        .endif
        .endif
        .endr
        .set    room, 32 - (cfa_offset & 8)     // what aligns the stack, and something
        .ifc    \mode, size_in_code
        .set    room, room + 0x1000
        .endif
        .set    cfa_offset, cfa_offset + room
        subq    $room, %rsp
        .ifnc   \mode, behind_rbp
        .cfi_def_cfa_offset cfa_offset
        .endif
        tell_saved first_saved_at, \registers
        .irp    name, \registers
        .ifnb   \name
        movq    $0x5A5A, %\name
        .endif
        .endr
        callq   _throw_from_case
        ud2
        .cfi_endproc
        .section __DATA,__data
        .quad   case_\@
        .text
        .endm

// A case for `registers`, and for everything that they are the last ones of; `mask` says which are among them.
        .macro  extend mode, mask, registers:vararg
        case    \mode, \registers
        extend_by \mode, \mask, 1, rbx, \registers
        extend_by \mode, \mask, 2, r12, \registers
        extend_by \mode, \mask, 4, r13, \registers
        extend_by \mode, \mask, 8, r14, \registers
        extend_by \mode, \mask, 16, r15, \registers
        .ifnc   \mode, behind_rbp
        extend_by \mode, \mask, 32, rbp, \registers
        .endif
        .endm
        .macro  extend_by mode, mask, bit, name, registers:vararg
        .if     ((\mask) & \bit) == 0
        extend  \mode, (\mask)|\bit, \name, \registers
        .endif
        .endm

        .section __DATA,__data
        .globl  _frame_cases, _frame_cases_end
        .p2align 3
_frame_cases:
        .text
        extend  behind_rbp, 0,
        extend  size_in_encoding, 0,
        extend  size_in_code, 0,
        .section __DATA,__data
_frame_cases_end:
        .quad   0

// bool call_case(void (*function)(), uint64 found[6]): calls it with a value of its own in each register that a callee
// keeps; true when it threw. `found` gets what rbx, rbp, r12, r13, r14, r15 hold at the landing pad.
//   rsp+0x08  found
        .text
        .globl  _call_case
        .p2align 4
_call_case:
        .cfi_startproc
        .cfi_personality 155, ___gxx_personality_v0
        .cfi_lsda 16, Lcall_case_lsda
        .set    cfa_offset, 8
        .irp    name, rbp, r15, r14, r13, r12, rbx
        pushq   %\name
        .set    cfa_offset, cfa_offset + 8
        .cfi_def_cfa_offset cfa_offset
        .endr
        subq    $0x18, %rsp
        .cfi_def_cfa_offset 0x50
        tell_saved 16, rbp, r15, r14, r13, r12, rbx
        movq    %rsi, 8(%rsp)
        .set    value, 0x100
        .irp    name, ebx, ebp, r12d, r13d, r14d, r15d
        movl    $value, %\name
        .set    value, value + 1
        .endr
Ltry_begin:
        callq   *%rdi
Ltry_end:
        xorl    %eax, %eax
        jmp     Lleave
Llanding_pad:
        movq    8(%rsp), %rcx
        .set    place, 0
        .irp    name, rbx, rbp, r12, r13, r14, r15
        movq    %\name, place(%rcx)
        .set    place, place + 8
        .endr
        movq    %rax, %rdi
        callq   ___cxa_begin_catch
        callq   ___cxa_end_catch
        movl    $1, %eax
Lleave:
        addq    $0x18, %rsp
        .irp    name, rbx, r12, r13, r14, r15, rbp
        popq    %\name
        .endr
        retq
        .cfi_endproc

        .section __TEXT,__gcc_except_tab
        .p2align 2
Lcall_case_lsda:
        .byte   255                     // LPStart omitted
        .byte   155                     // TType: indirect pcrel sdata4
        .uleb128 Ltypes_end - Ltypes_offset
Ltypes_offset:
        .byte   1                       // call sites: uleb128
        .uleb128 Lsites_end - Lsites
Lsites:
        .uleb128 Ltry_begin - _call_case, Ltry_end - Ltry_begin, Llanding_pad - _call_case, 1
Lsites_end:
        .byte   1, 0                    // the first type, no further action
        .p2align 2
        .long   0                       // catches all
Ltypes_end:
