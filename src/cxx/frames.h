// What a return address into game code decodes to: how its frame is taken off, and where an exception stops in it.
// Decoding reads three tables of the image, so each address is decoded once; afterwards a lookup is a hash, and
// throwing touches nothing but frames of this cache and the stack.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "cxx/compact_unwind.h"
#include "cxx/lsda.h"
#include "support/hash.h"

namespace vlm {

/// How the frame of a function lies on the stack.
struct FrameShape {
  std::uint64_t function;  // run-time address of its first instruction
  std::uint32_t encoding;
  bool supported;  // else the encoding does not describe the frame, and layout is empty
  FrameLayout layout;
};

/// Immutable once made; lives until the process ends, as images do. An exception that passes by reads one cache line.
struct alignas(64) Frame {
  std::uint64_t return_address;
  const Frame* next;          // with the same hash
  std::uint64_t landing_pad;  // 0: exceptions pass this call by
  FrameLayout layout;
  std::uint32_t clause_count;
  bool has_cleanup;
  bool supported;  // else the encoding does not describe the frame, and layout is empty

  std::uint64_t function;  // run-time address of its first instruction
  std::uint32_t encoding;
  CatchClause clauses[];
};
static_assert(offsetof(Frame, function) == 64);

/// Lists by hash; frames are only ever put in front. Two threads may both decode an address: either frame will do.
inline constexpr unsigned frame_list_bits = 14;
extern constinit std::atomic<const Frame*> frame_lists[1 << frame_list_bits];

inline std::atomic<const Frame*>& frame_list(std::uint64_t return_address) {
  return frame_lists[hash_address(return_address, frame_list_bits)];
}

/// Decodes an address that no list has.
const Frame* decode_frame(std::uint64_t return_address);

/// The frame of a return address, or null when no image has unwind information for it: a Windows function's address.
/// Any thread, no lock. Fatal when the function's exception table is damaged.
inline const Frame* find_frame(std::uint64_t return_address) {
  const Frame* frame = frame_list(return_address).load(std::memory_order_acquire);
  while (frame != nullptr && frame->return_address != return_address) frame = frame->next;
  return frame != nullptr ? frame : decode_frame(return_address);
}

/// The shape of the frame of the function that holds an instruction, or nothing when no image has unwind information
/// for it. For reports: allocates nothing, and nothing is fatal.
std::optional<FrameShape> find_shape(std::uint64_t instruction);

}  // namespace vlm
