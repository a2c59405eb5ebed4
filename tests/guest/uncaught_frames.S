// Frames that no unwinder takes off by compact unwind information, and exception tables that nobody wrote so.
        .text

        .macro  frame name
        .globl  _\name
        .p2align 4
_\name:
        .endm


// Described by DWARF alone.
        frame   throw_from_dwarf_frame
        .cfi_startproc
        subq    $8, %rsp
        .cfi_adjust_cfa_offset 8
        callq   _uncaught_class
        ud2
        .cfi_endproc

// Says that it saves seven registers, of six that there are.
        frame   throw_from_seven_registers
        subq    $8, %rsp
        callq   _uncaught_class
        ud2
Lseven_end:
        .section __LD,__compact_unwind,regular,debug
        .quad   _throw_from_seven_registers
        .long   Lseven_end - _throw_from_seven_registers, 0x02021C00
        .quad   0, 0
        .text

        frame   throw_past_damaged_table
        .cfi_startproc
        .cfi_personality 155, ___gxx_personality_v0
        .cfi_lsda 16, damaged_call_sites
        subq    $8, %rsp
        .cfi_def_cfa_offset 16
        callq   _uncaught_class
        ud2
        .cfi_endproc

        .section __TEXT,__gcc_except_tab
        .p2align 2
damaged_call_sites:
        .byte   255, 255, 1                     // LPStart and TType omitted, call sites in uleb128
        .byte   0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F

        .subsections_via_symbols        // the linker takes tables apart at their symbols
