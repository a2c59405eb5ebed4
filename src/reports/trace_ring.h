// The calls of traced imports as they are recorded: a ring for each thread, which that thread alone writes. Nobody
// waits for anybody: a full ring loses its oldest calls.
//
//   game code -> stub (r11 = TracedImport) -> trace_entry (abi/entries.S) -> record_import_call()
//                                                         `-> the import's implementation, as if called directly
#pragma once

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>

namespace vlm {

/// What a stub hands to trace_entry; lives until the process ends.
struct TracedImport {
  const void* implementation;
  const char* name;
};

/// One call. An argument that is the address of a text has a copy of it here.
struct TracedCall {
  static constexpr std::size_t argument_count = 6;
  static constexpr std::size_t longest_text = 200;  // what is longer is cut
  static constexpr std::size_t text_room = 408;     // of all texts of a call

  std::int64_t time;  // of the performance counter
  DWORD thread;
  const TracedImport* import;
  std::uint64_t caller;  // the return address
  std::array<std::uint64_t, argument_count> arguments;
  /// Of each argument's text in `texts`; 0 for what is no text.
  std::array<std::uint8_t, argument_count> text_sizes;
  std::array<bool, argument_count> is_cut;
  std::array<char, text_room> texts;  // one behind the other
};

/// The calls of one thread. Never freed: when its thread has ended, the next new one goes on with it.
class TraceRing {
 public:
  static constexpr std::uint64_t capacity = 4096;

  /// How many calls there were so far.
  std::uint64_t recorded() const { return recorded_.load(std::memory_order_acquire); }
  /// Copies the call with this number, which counts from 0. False when newer calls have taken its place.
  bool copy(std::uint64_t number, TracedCall& call) const;

  TraceRing* next = nullptr;

  // For the writer of the trace (trace_log.cpp), under its lock.
  std::uint64_t written = 0;  // calls that are in the file, or lost
  std::uint64_t lost = 0;     // of those, since the last line
  bool has_head = false;
  TracedCall head;  // the next call to write

 private:
  friend struct TraceRecorder;

  struct Slot {
    std::atomic<std::uint64_t> holds;  // number + 1 of the call; 0 while it is written
    TracedCall call;
  };

  std::atomic<bool> is_free_{false};  // its thread has ended
  std::atomic<std::uint64_t> recorded_{0};
  std::array<Slot, capacity> slots_;
};

/// The newest ring; `next` leads to the others. Rings are only ever added.
TraceRing* first_trace_ring();

/// Gets ready to record calls. Once, before the first one.
void start_recording();

/// Called by trace_entry. Returns the import's implementation.
extern "C" const void* record_import_call(const TracedImport* import, const std::uint64_t* arguments,
                                          std::uint64_t caller);

}  // namespace vlm
