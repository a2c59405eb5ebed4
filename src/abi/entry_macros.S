# What hand-written entries have in common. Included, not assembled on its own.

# The start of a function that other files call and that has unwind data; .seh_endproc ends it.
        .macro  begin name
        .globl  \name
        .def    \name
        .scl    2
        .type   32
        .endef
        .p2align 4
        .seh_proc \name
\name:
        .endm
