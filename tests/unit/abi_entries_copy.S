# A second copy of the library's entries whose names stay in this file, so that what they call are the recording
# functions of abi_entries_test.cpp. The code is the library's own, line by line. Of the variadic entries, which come from
# one macro, one is tested.
#define globl keep_local
        .macro  .keep_local name
        .endm

#define trap_unimplemented test_trap_unimplemented
#define objc_lookup test_objc_lookup
#define objc_method_cache test_objc_method_cache
#define NSLog_body test_NSLog_body

#include "abi/entries.S"
#undef globl

        .section .rdata,"dr"
        .globl  test_entries
test_entries:
        .quad   trap_entry, objc_msgSend_entry, objc_msgSend_stret_entry, NSLog_entry
