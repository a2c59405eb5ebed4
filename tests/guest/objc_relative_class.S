# A class whose methods stand in a relative list, as newer linkers write them: @interface Relative : NSObject with
# -(long)seven and -(long)first. Each word is a distance from itself; there are no types.
        .section __TEXT,__text,regular,pure_instructions
_seven: movl    $7, %eax
        retq
_first: movl    $1, %eax
        retq

        .section __TEXT,__objc_methname,cstring_literals
L_seven: .asciz "seven"
L_first: .asciz "first"
        .section __TEXT,__objc_classname,cstring_literals
L_name: .asciz  "Relative"
        .section __DATA,__relative_refs
        .p2align 3
_ref_seven: .quad L_seven
_ref_first: .quad L_first

        .section __DATA,__relative_lists
        .p2align 3
_methods:
        .long   0x8000000c, 2
        .long   _ref_first - ., 0, _first - .
        .long   _ref_seven - ., 0, _seven - .

        .section __DATA,__objc_const
        .p2align 3
_info:  .long   0, 8, 8, 0
        .quad   0, L_name, _methods, 0, 0, 0, 0

        .section __DATA,__objc_data
        .globl  _OBJC_CLASS_$_Relative
        .p2align 3
_OBJC_CLASS_$_Relative:
        .quad   _OBJC_METACLASS_$_NSObject, _OBJC_CLASS_$_NSObject, __objc_empty_cache, 0, _info
