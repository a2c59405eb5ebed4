// Hand-written entries (entries.S): where generated stubs and variadic shims land, and non-local jumps.
// Every entry has unwind data: a Windows stack walk crosses it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "abi/entry_layout.h"
#include "abi/va_list.h"
#include "support/sysv.h"

namespace vlm {

struct IcallRecord;

/// What a managed call hands back in registers; any System V result class fits.
struct ManagedResult {
  std::uint64_t rax;
  std::uint64_t rdx;
  std::uint64_t xmm0;  // low 64 bits
  std::uint64_t xmm1;  // low 64 bits
};
static_assert(offsetof(ManagedResult, rax) == MANAGED_RESULT_RAX &&
                  offsetof(ManagedResult, rdx) == MANAGED_RESULT_RDX &&
                  offsetof(ManagedResult, xmm0) == MANAGED_RESULT_XMM0 &&
                  offsetof(ManagedResult, xmm1) == MANAGED_RESULT_XMM1,
              "icall_entry loads the registers from here");

/// What setjmp_entry keeps of the caller, at the start of the game's jmp_buf. Nothing else is saved.
struct JumpBuffer {
  std::uint64_t rbx;
  std::uint64_t rbp;
  std::uint64_t rsp;  // as it is after setjmp returned
  std::uint64_t r12, r13, r14, r15;
  std::uint64_t rip;
};
static_assert(offsetof(JumpBuffer, rbx) == JUMP_RBX && offsetof(JumpBuffer, rbp) == JUMP_RBP &&
                  offsetof(JumpBuffer, rsp) == JUMP_RSP && offsetof(JumpBuffer, r12) == JUMP_R12 &&
                  offsetof(JumpBuffer, r13) == JUMP_R13 && offsetof(JumpBuffer, r14) == JUMP_R14 &&
                  offsetof(JumpBuffer, r15) == JUMP_R15 && offsetof(JumpBuffer, rip) == JUMP_RIP,
              "setjmp_entry and longjmp_entry use these positions");

}  // namespace vlm

extern "C" {

// Not functions to call from C++: addresses to put into stubs and shim rows.
void trap_entry();   // record in rax -> trap_unimplemented
void icall_entry();  // record in rax -> dispatch_managed_call
void trace_entry();  // record in r11 -> record_import_call, then the import's implementation
void objc_msgSend_entry();
void objc_msgSend_stret_entry();
void objc_null_method();  // every result register zero
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
/// a floating-point value. At least four words of `arguments` must be readable, whatever `count` says; the stack is
/// not probed, so `count` stays below 500. result[0] = rax, result[1] = low half of xmm0. Returns `result`.
std::uint64_t* call_win64(std::uint64_t result[2], const void* function, const std::uint64_t* arguments,
                          std::uint64_t count);

/// Calls a game function with six integer arguments from Windows code; xmm0 to xmm3 reach it as the caller left them,
/// rax and xmm0 come back as it left them.
std::uint64_t call_sysv(const void* function, const std::uint64_t arguments[6]);

// What the entries call. Each is defined by the family it belongs to.

/// Windows convention, from icall_entry. `stack` is the caller's first stack argument.
void dispatch_managed_call(vlm::IcallRecord* record, const vlm::RegisterSaveArea* registers, const std::uint64_t* stack,
                           vlm::ManagedResult* result);
/// The code to run for a message; objc_null_method when nothing implements it. The receiver is not null. Windows
/// convention: the message-send entries call it when their look into the method cache failed.
const void* objc_lookup(void* receiver, const char* selector);

// From the variadic entries. The list stands before the first unnamed argument; it belongs to the entry's frame and
// may be advanced.
SYSV std::int32_t vsnprintf_body(char* buffer, std::uint64_t size, const char* format, vlm::SysvVaList* arguments);
SYSV std::int32_t fprintf_body(void* stream, const char* format, vlm::SysvVaList* arguments);
SYSV std::int32_t sscanf_body(const char* input, const char* format, vlm::SysvVaList* arguments);
SYSV void NSLog_body(void* format, vlm::SysvVaList* arguments);
SYSV std::int32_t open_body(const char* path, std::int32_t flags, vlm::SysvVaList* arguments);
SYSV std::int32_t fcntl_body(std::int32_t descriptor, std::int32_t command, vlm::SysvVaList* arguments);
SYSV std::int32_t ioctl_body(std::int32_t descriptor, std::uint64_t request, vlm::SysvVaList* arguments);
SYSV void* stringWithFormat_body(void* self, const char* selector, void* format, vlm::SysvVaList* arguments);
SYSV void* initWithObjects_body(void* self, const char* selector, void* first, vlm::SysvVaList* arguments);

}  // extern "C"
