// Generated machine code that lets control cross between the System V and the Windows x64 convention.
//
//   callback stub         game code -> Windows function     up to six integer or pointer arguments
//   System V stub         Windows code -> game function     up to six integer or pointer arguments
//   record stub           game code -> a fixed entry, with the address of a record in rax
//   transparent stub      the same, with the record in r11
//
// Stubs live in 1 MiB chunks of executable memory, are 16-byte aligned and are never freed. Stubs that have a frame
// are described to Windows, so a stack walk crosses them. Any thread may make stubs.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlm {

inline constexpr std::size_t stub_chunk_size = 0x100000;
inline constexpr unsigned max_stub_arguments = 6;

/// Bytes of a record stub: mov rax, record; mov r11, entry; jmp r11.
inline constexpr std::size_t record_stub_size = 23;

/// Writes a record stub at `place`, which holds at least record_stub_size writable bytes.
void write_record_stub(void* place, const void* record, const void* entry);

/// A record stub from the stub pool: game code that calls it arrives at `entry` with `record` in rax.
void* make_record_stub(const void* record, const void* entry);

/// The same for an entry that has to find every register but r11 as the caller left it: the record is in r11.
void* make_transparent_stub(const void* record, const void* entry);

/// The record of a record stub made for `entry`, or null when `address` is none. Probes memory before it reads.
void* record_of_stub(const void* address, const void* entry);

/// A stub that game code calls to reach the Windows function `target`.
void* make_callback_stub(const void* target);

/// A stub that Windows code calls to reach the game function `function` with at most max_stub_arguments arguments;
/// argument registers beyond the fourth are zero when `argument_count` does not cover them.
void* make_sysv_function_stub(const void* function, unsigned argument_count);

/// An executable page-aligned arena for stubs; fatal when memory is out.
void* allocate_stub_memory(std::size_t size);

}  // namespace vlm
