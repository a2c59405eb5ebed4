// Generated machine code that lets control cross between the System V and the Windows x64 convention.
//
// Stubs live in 1 MiB chunks of executable memory, are 16-byte aligned and are never freed.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlm {

/// Bytes of a record stub: mov rax, record; mov r11, entry; jmp r11.
inline constexpr std::size_t record_stub_size = 23;

/// Writes a record stub at `place`, which holds at least record_stub_size writable bytes.
void write_record_stub(void* place, const void* record, const void* entry);

/// A record stub from the stub pool: game code that calls it arrives at `entry` with `record` in rax.
void* make_record_stub(const void* record, const void* entry);

/// The record of a record stub made for `entry`, or null when `address` is none. Probes memory before it reads.
void* record_of_stub(const void* address, const void* entry);

/// An executable page-aligned arena for stubs; fatal when memory is out.
void* allocate_stub_memory(std::size_t size);

}  // namespace vlm
