// Positions that entries.S and C++ share, in bytes. The C++ side pins each with a static_assert.
#pragma once

// RegisterSaveArea (va_list.h): six integer registers, then eight vector registers of 16 bytes.
#define SAVE_AREA_XMM 48
#define SAVE_AREA_SIZE 176

// SysvVaList (va_list.h).
#define VA_LIST_GP_OFFSET 0
#define VA_LIST_FP_OFFSET 4
#define VA_LIST_OVERFLOW_ARG_AREA 8
#define VA_LIST_REG_SAVE_AREA 16

// ManagedResult (entries.h).
#define MANAGED_RESULT_RAX 0
#define MANAGED_RESULT_RDX 8
#define MANAGED_RESULT_XMM0 16
#define MANAGED_RESULT_XMM1 24

// JumpBuffer (entries.h).
#define JUMP_RBX 0
#define JUMP_RBP 8
#define JUMP_RSP 16
#define JUMP_R12 24
#define JUMP_R13 32
#define JUMP_R14 40
#define JUMP_R15 48
#define JUMP_RIP 56

// CachedMethod and the method cache (objc/dispatch.h). The slot of a message is the upper bits of the low half of
// (class + 9 * selector) * METHOD_CACHE_MULTIPLIER: every bit of both counts, as selectors are texts that lie side by
// side and classes are 40 bytes apart.
#define CACHED_METHOD_CLASS 0
#define CACHED_METHOD_SELECTOR 8
#define CACHED_METHOD_IMPLEMENTATION 16
#define METHOD_CACHE_MULTIPLIER 0x9e3779b1
#define METHOD_CACHE_SHIFT 19
#define METHOD_CACHE_SLOTS (1 << (32 - METHOD_CACHE_SHIFT))
