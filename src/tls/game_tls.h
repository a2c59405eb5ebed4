// Where a thread's game storage hangs: one Windows TLS slot, read by patched game code with a gs-relative load.
//
// Everything here is touched by the thread-attach callback before any constructor ran, so it is constant-initialised.
// All values are written before game code runs and only read afterwards.
#pragma once

#include <cstdint>

#include "tls/thread_record.h"

namespace vlm {

inline constexpr std::uint32_t no_tls_index = 0xFFFFFFFF;

/// Positions in the x64 thread environment block, as Windows lays it down.
enum TebOffset : std::uint32_t {
  TEB_STACK_BASE = 0x08,
  TEB_STACK_LIMIT = 0x10,
  TEB_SELF = 0x30,
  TEB_DEALLOCATION_STACK = 0x1478,
  TEB_TLS_SLOTS = 0x1480,
  TEB_TLS_EXPANSION_SLOTS = 0x1780,
};

extern "C" std::uint64_t game_storage_offset;  // of the slot: in the TEB, or in its expansion array
extern std::uint32_t game_tls_index;
extern std::uint32_t game_tls_expansion;       // 1 when the index is 64 or more

void game_tls_init();
void game_tls_set(ThreadRecord* record);
ThreadRecord* game_tls_get();
std::uint64_t game_tls_read_teb(std::uint64_t teb);
void game_tls_write_teb(std::uint64_t teb, ThreadRecord* record);
void thread_stack_commit(std::uint64_t teb);

}  // namespace vlm
