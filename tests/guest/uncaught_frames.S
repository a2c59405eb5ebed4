// Frames that no unwinder takes off by compact unwind information, and exception tables that nobody wrote so.
        .text

// Described by DWARF alone.
        .globl  _throw_from_dwarf_frame
_throw_from_dwarf_frame:
        .cfi_startproc
        subq    $8, %rsp
        .cfi_adjust_cfa_offset 8
        callq   _uncaught_class
        ud2
        .cfi_endproc

        .globl  _throw_past_damaged_table
_throw_past_damaged_table:
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
