// One record per Windows thread that game code can meet, and the registry that gives each its Mach port.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

#include "support/locks.h"

namespace vlm {

inline constexpr int thread_storage_slots = 512;
inline constexpr std::uint32_t max_threads = 4096;
inline constexpr std::uint32_t first_thread_port = 4096;

/// A thread as game code sees it; its address is the game's pthread_t. Zero-filled when made, never freed.
struct ThreadRecord {
  HANDLE handle;  // a real handle, owned by the record, never closed
  std::uint32_t thread_id;
  std::uint32_t port;  // first_thread_port + index in the registry; 0 when the registry was full
  std::uint64_t stack_low;
  std::uint64_t stack_high;
  void* exit_value;
  std::uint32_t running;  // 1 when made for a thread that already ran, 0 when made by _pthread_create
  std::uint32_t padding;
  void* storage[thread_storage_slots];  // what game code sees at gs:[0]; touched by its own thread only
};
static_assert(offsetof(ThreadRecord, storage) == 48, "patched code and the TLS slot use this position");

/// A zero-filled record that belongs to no thread yet, or null when memory is out. Safe in the thread-attach callback.
ThreadRecord* make_thread_record();

/// Takes the bounds of a thread's stack reservation from its environment block.
void set_stack_limits(ThreadRecord* record, std::uint64_t teb);

/// The calling thread's record, made and registered on the first call. Never null except when memory is out.
ThreadRecord* register_current_thread();

/// Gives every thread that already runs in this process a record and game storage. Once, at start-up.
void adopt_existing_threads();

/// Appends a record to the registry and gives it its port. False (port stays 0) when all 4096 places are taken.
bool register_thread_record(ThreadRecord* record);

/// The record of a port, or null for a port that was never given out. Takes no lock.
ThreadRecord* thread_record_of_port(std::uint32_t port);

}  // namespace vlm
