// What a return address into game code decodes to: how its frame is taken off, and where an exception stops in it.
// Decoding reads three tables of the image, so each address is decoded once; afterwards a lookup is a hash, and
// throwing touches nothing but frames of this cache and the stack.
#pragma once

#include <cstdint>
#include <optional>

#include "cxx/compact_unwind.h"
#include "cxx/lsda.h"

namespace vlm {

/// How the frame of a function lies on the stack.
struct FrameShape {
  std::uint64_t function;  // run-time address of its first instruction
  std::uint32_t encoding;
  bool supported;  // else the encoding does not describe the frame, and layout is empty
  FrameLayout layout;
};

/// Immutable once made; lives until the process ends, as images do.
struct Frame {
  std::uint64_t return_address;
  FrameShape shape;
  bool has_cleanup;
  std::uint32_t clause_count;
  std::uint64_t landing_pad;  // 0: exceptions pass this call by
  const Frame* next;          // with the same hash
  CatchClause clauses[];
};

/// The frame of a return address, or null when no image has unwind information for it: a Windows function's address.
/// Any thread, no lock. Fatal when the function's exception table is damaged.
const Frame* find_frame(std::uint64_t return_address);

/// The shape of the frame of the function that holds an instruction, or nothing when no image has unwind information
/// for it. For reports: allocates nothing, and nothing is fatal.
std::optional<FrameShape> find_shape(std::uint64_t instruction);

}  // namespace vlm
