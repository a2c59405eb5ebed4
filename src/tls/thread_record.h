// One record per Windows thread that game code can meet, and the registry that gives each its Mach port.
//
// The registry is an array of places. A thread keeps its place, and with it its port and its pthread_t, for as long as
// it lives. Places of ended threads are used again, those that ended longest ago first, so that a port or a pthread_t
// that the game still holds answers as a dead one for a while.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

#include "support/locks.h"

namespace vlm {

inline constexpr int thread_storage_slots = 512;
inline constexpr std::uint32_t max_threads = 4096;
inline constexpr std::uint32_t first_thread_port = 4096;

/// A thread as game code sees it; its address is the game's pthread_t.
struct ThreadRecord {
  HANDLE handle;        // a real handle; the registry closes it when the place is used again
  void* cleanup_stack;  // game code's own: macOS's pthread_cleanup_push is compiled into it and writes here
  std::uint32_t thread_id;
  std::uint32_t port;  // first_thread_port + place; 0 of a thread that has none
  std::uint64_t stack_low;
  std::uint64_t stack_high;
  std::uint32_t running;                // 1 when made for a thread that already ran, 0 when made by _pthread_create
  std::uint32_t life;                   // how many threads have had the place
  void* storage[thread_storage_slots];  // what game code sees at gs:[0]; touched by its own thread only
  bool retired;                         // the thread has said that it ends
};
static_assert(offsetof(ThreadRecord, cleanup_stack) == 8, "__cleanup_stack of macOS's struct _opaque_pthread_t");
static_assert(offsetof(ThreadRecord, storage) == 48, "patched code and the TLS slot use this position");

/// Guards every place of the registry: handles are closed under it. Nobody is stopped while he holds it.
extern StandstillLock registry_lock;

/// The record of a port, or null for a port that was never given out.
ThreadRecord* thread_record_of_port_locked(std::uint32_t port);

/// True when the thread is gone, or was never there.
bool has_ended(const ThreadRecord& thread);

/// The calling thread's record, made on the first call. A thread beyond the 4096 that the registry holds gets one
/// without a port: it can run game code, which cannot stop it. Null only when memory is out as well.
ThreadRecord* register_current_thread();

/// To be called when the calling thread ends: its place may be used again once it is gone.
void retire_current_thread();

/// Makes a thread that has its record from the start and waits to be resumed. Null when 4096 threads are alive, or
/// Windows makes none.
ThreadRecord* make_suspended_thread(std::size_t stack_size, LPTHREAD_START_ROUTINE procedure, void* argument);

/// Starts a thread of the library's own. It runs no game code and takes no place. False when Windows makes none.
///   stack_size  of its reservation; 0 for the program's usual one
bool start_own_thread(LPTHREAD_START_ROUTINE procedure, void* argument, DWORD stack_size = 0);

/// Gives every thread that already runs in this process a record and game storage. Once, at start-up.
void adopt_existing_threads();

/// Takes a place for a thread and fills its record; null when 4096 threads are alive. The record owns the handle then.
///   teb  the thread's environment block, from which the bounds of its stack are taken
ThreadRecord* take_thread_place_locked(HANDLE thread, std::uint32_t thread_id, std::uint64_t teb, bool running);

/// Address of a thread's environment block, or 0. The block is there while the thread cannot end: it stands still.
std::uint64_t teb_of_thread(HANDLE thread);

}  // namespace vlm
