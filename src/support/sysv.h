// The System V AMD64 calling convention, in which game code calls the shims and is called by the library.
//
// A function marked SYSV is for game code's eyes; one without is for Windows. No function is both.
// Game types have their own widths (LP64: `long` is 64 bits, `wchar_t` 32), so guest signatures use
// fixed-width types only.
#pragma once

#define SYSV __attribute__((sysv_abi))
