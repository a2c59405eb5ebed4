// The header in front of every exception object, and who owns it.
//
//   | ExceptionHeader | object |             made by ___cxa_allocate_exception, 16-byte aligned
//   | ExceptionHeader | pointer |            a dependent one, made when an exception_ptr is thrown again: the same
//          `primary` --> the object          object may so be handled several times at once, by several threads
//
// Landing pads get the address of unwind_header, everything else the address of the object.
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/sysv.h"

namespace vlm {

struct ExceptionHeader {
  ExceptionHeader* next_caught;  // below this one on its thread's stack of caught exceptions
  std::uint64_t exception_type;  // std::type_info
  SYSV void (*destructor)(void*);
  std::int32_t handler_count;     // active catch clauses; negative while it is being rethrown
  std::uint32_t reference_count;  // 1, and one for each exception_ptr and each dependent header
  std::int64_t handler_switch_value;
  std::uint64_t handler_cfa;  // of the frame whose handler was found by the search

  struct {
    std::uint64_t exception_class;
    // Private words of _Unwind_Exception.
    std::uint64_t thrown_value;   // the address of the object, or the pointer that it holds when that is its type
    std::uint64_t handler_value;  // the same as the handler sees it: at or pointing at the base that it catches
    ExceptionHeader* primary;     // of a dependent header; else null
  } unwind_header;

  static ExceptionHeader* of_object(void* object) { return static_cast<ExceptionHeader*>(object) - 1; }
  static ExceptionHeader* of_unwind_header(void* address) {
    return reinterpret_cast<ExceptionHeader*>(static_cast<std::byte*>(address) -
                                              offsetof(ExceptionHeader, unwind_header));
  }
  ExceptionHeader* owner() { return unwind_header.primary != nullptr ? unwind_header.primary : this; }
  void* object() { return owner() + 1; }
  /// The pointer that a handler by reference to a pointer reads: right behind unwind_header, wherever the object is.
  std::uint64_t& pointer_in_object() { return *reinterpret_cast<std::uint64_t*>(this + 1); }
};
static_assert(sizeof(ExceptionHeader) == 80 && offsetof(ExceptionHeader, unwind_header) == 48);

/// "CLNGC++\0" as the Itanium C++ ABI packs it.
inline constexpr std::uint64_t exception_class = 0x434C4E47432B2B00;

}  // namespace vlm
