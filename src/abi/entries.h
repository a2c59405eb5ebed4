// Hand-written entries (entries.S): where generated stubs and variadic shims land, and non-local jumps.
#pragma once

#include <cstdint>

#include "support/sysv.h"

extern "C" {

// Not functions to call from C++: addresses to put into stubs and shim rows.
void trap_entry();            // record in rax -> trap_unimplemented
void icall_entry();           // record in rax -> dispatch_managed_call
void objc_msgSend_entry();
void objc_msgSend_stret_entry();
void objc_null_method();      // every result register zero
void snprintf_entry();
void fprintf_entry();
void sscanf_entry();
void NSLog_entry();
void open_entry();
void fcntl_entry();
void ioctl_entry();
void stringWithFormat_entry();
void initWithObjects_entry();
void setjmp_entry();
void longjmp_entry();

/// Calls a Windows function with `count` 64-bit arguments; each of the first four travels both as an integer and as
/// a floating-point value. result[0] = rax, result[1] = low half of xmm0. Returns `result`.
std::uint64_t* call_win64(std::uint64_t result[2], const void* function, const std::uint64_t* arguments,
                          std::uint64_t count);

/// Calls a game function with six integer arguments from Windows code; rax and xmm0 come back as it left them.
std::uint64_t call_sysv(const void* function, const std::uint64_t arguments[6]);

}  // extern "C"
