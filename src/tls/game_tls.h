// Where a thread's game storage hangs: one Windows TLS slot, read by patched game code with a gs-relative load.
//
//   TEB (gs on Windows)                                      ThreadRecord
//   0x1480 TlsSlots[64]         -- index below 64 ------+    | header, 48 bytes   |
//   0x1780 TlsExpansionSlots -> void*[1024] -- others --+--> | storage[512]       |  what game code takes for gs:[0]
//
// Everything here is touched by the thread-attach callback before any constructor ran, so it is constant-initialised.
// All values are written before game code runs and only read afterwards.
#pragma once

#include <cstdint>
#include <memory>

#include "tls/thread_record.h"

namespace vlm {

inline constexpr std::uint32_t no_tls_index = 0xFFFFFFFF;
inline constexpr std::uint32_t teb_tls_slot_count = 64;
inline constexpr std::uint32_t teb_tls_expansion_slot_count = 1024;

/// Positions in the x64 thread environment block, as Windows lays it down.
enum TebOffset : std::uint32_t {
  TEB_STACK_BASE = 0x08,
  TEB_STACK_LIMIT = 0x10,
  TEB_SELF = 0x30,
  TEB_THREAD_ID = 0x48,
  TEB_DEALLOCATION_STACK = 0x1478,
  TEB_TLS_SLOTS = 0x1480,
  TEB_TLS_EXPANSION_SLOTS = 0x1780,
};

/// A field of a thread environment block.
template <class T>
volatile T& teb_field(std::uint64_t teb, TebOffset offset) {
  return *reinterpret_cast<volatile T*>(teb + offset);
}

/// Address of the calling thread's environment block.
std::uint64_t current_teb();

/// GetCurrentThreadId() without the call: every mutex operation asks.
inline std::uint32_t current_thread_id() { return __readgsdword(TEB_THREAD_ID); }

extern "C" std::uint64_t game_storage_offset;  // of the slot: in the TEB, or in its expansion array
extern std::uint32_t game_tls_index;
extern std::uint32_t game_tls_expansion;  // 1 when the index is 64 or more

/// Where the slot of a TLS index lies.
struct GameTlsPlace {
  std::uint64_t offset;
  std::uint32_t expansion;
};
constexpr GameTlsPlace game_tls_place(std::uint32_t index) {
  if (index < teb_tls_slot_count) return {TEB_TLS_SLOTS + std::uint64_t{8} * index, 0};
  return {std::uint64_t{8} * (index - teb_tls_slot_count), 1};
}

/// Makes sure that the TLS index exists; fatal when Windows has none left. Logs nothing: the thread-attach callback
/// calls it before the log has its first line.
void game_tls_init();

/// Logs an index among the expansion slots, which debugging patched code needs to know. Called once by static start-up.
void game_tls_announce();

/// Puts the record's storage into the calling thread's slot; null empties it.
void game_tls_set(ThreadRecord* record);

/// The calling thread's record, or null when it has none.
ThreadRecord* game_tls_get();

/// The calling thread's storage, read as patched code reads it; null when it has none.
inline void** game_storage() {
  if (game_tls_expansion == 0) [[likely]] {
    return reinterpret_cast<void**>(__readgsqword(static_cast<unsigned long>(game_storage_offset)));
  }
  const std::uint64_t array = __readgsqword(TEB_TLS_EXPANSION_SLOTS);
  return array != 0 ? *reinterpret_cast<void***>(array + game_storage_offset) : nullptr;
}

/// Another thread's slot value, read from its environment block: 0 when it has no storage yet.
std::uint64_t game_tls_read_teb(std::uint64_t teb);

struct ProcessHeapDeleter {
  void operator()(void* block) const noexcept { HeapFree(GetProcessHeap(), 0, block); }
};
/// An array of expansion slots for a thread that has none, as Windows would give it on the thread's first use of one.
using ExpansionArray = std::unique_ptr<void, ProcessHeapDeleter>;

/// To be called while the other thread still runs: once it stands, it may hold the heap's lock. Null where slots are in
/// the environment block itself, and when memory is out.
ExpansionArray make_expansion_array();

/// Sees to it that another thread's slot can be written, with an array if it has none; that one is taken then. False
/// when there is none to give.
bool game_tls_prepare_teb(std::uint64_t teb, ExpansionArray& spare);

/// Puts the record's storage into another thread's slot, which is prepared.
void game_tls_write_teb(std::uint64_t teb, ThreadRecord* record);

/// Commits all of a thread's stack but its lowest 16 KiB. Game code touches its stack out of order, as macOS allows;
/// Windows grows a stack page by page through the guard page only. Stacks of 64 KiB and less are left alone.
void thread_stack_commit(std::uint64_t teb);

}  // namespace vlm
