// The System V AMD64 calling convention, in which game code calls the shims and is called by the library.
//
// Game code calls functions that are marked SYSV, Windows code calls the others. No function is both. Game code has its
// own widths of types (`long` has 64 bits, `wchar_t` 32), so functions that it calls use fixed-width types only.
#pragma once

#define SYSV __attribute__((sysv_abi))
