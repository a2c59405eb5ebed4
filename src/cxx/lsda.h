// Language-specific data: what a function does when an exception passes through a call of it. The GCC exception-table
// format, with the pointer encodings of DWARF exception headers.
//
//   LPStart encoding, LPStart       where landing pads count from; the function's start when omitted
//   TType encoding, TType offset    end of the type table
//   call-site encoding, length      call sites: start, length, landing pad, action, in the order of their starts
//   actions                         type filter, displacement of the next action
//   type table                      read backwards from its end by type filters above 0
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "macho/image.h"
#include "support/result.h"

namespace vlm {

/// A catch clause. `type` is the address of its std::type_info; 0 catches everything.
struct CatchClause {
  std::int64_t selector;
  std::uint64_t type;
};

/// Where a call that throws continues in its own function.
struct LandingPad {
  std::uint64_t address;
  bool has_cleanup;                  // entered even when no clause matches
  std::vector<CatchClause> clauses;  // in the order in which they are tried
};

/// The landing pad for the instruction at a run-time address, or nothing when exceptions pass that instruction by.
///   image     placed, its imports bound: pointers of the type table are read through its memory
///   lsda      address of the function's data
///   function  address of its first instruction
///   errors    a whole message; nothing outside the image was read
Result<std::optional<LandingPad>> find_landing_pad(const MachImage& image, std::uint64_t lsda, std::uint64_t function,
                                                   std::uint64_t instruction);

}  // namespace vlm
