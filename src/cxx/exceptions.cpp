// The C++ exception ABI of game code: making and throwing exceptions, catching them, std::exception_ptr.
#include <cstdlib>

#include "cxx/exception_memory.h"
#include "cxx/exception_object.h"
#include "cxx/shims.h"
#include "cxx/type_matching.h"
#include "cxx/unwinder.h"
#include "diag/log.h"

// throw_entries.S: capture the caller and call the functions below them.
extern "C" {
void cxa_throw_entry();
void cxa_rethrow_entry();
void unwind_resume_entry();
void rethrow_exception_entry();
}

namespace vlm {
namespace {

constinit thread_local ExceptionHeader* caught_exceptions = nullptr;  // the innermost handler's; linked by next_caught

ExceptionHeader* make_header(std::uint64_t object_size) {
  void* block = nullptr;
  if (object_size <= PTRDIFF_MAX) block = allocate_exception_memory(sizeof(ExceptionHeader) + object_size);
  if (block == nullptr) {
    fatal_error("out of memory: cannot allocate an exception object of %llu bytes",
                static_cast<unsigned long long>(object_size));
  }
  auto* header = static_cast<ExceptionHeader*>(block);
  header->reference_count = 1;
  return header;
}

// An exception_ptr may be copied and dropped by any thread.
void add_reference(ExceptionHeader& header) { __atomic_fetch_add(&header.reference_count, 1, __ATOMIC_RELAXED); }

void release(ExceptionHeader* header) {
  if (static_cast<std::int32_t>(__atomic_fetch_sub(&header->reference_count, 1, __ATOMIC_ACQ_REL)) > 1) return;
  if (ExceptionHeader* const primary = header->unwind_header.primary) {
    free_exception_memory(header);
    release(primary);
    return;
  }
  if (header->destructor != nullptr) header->destructor(header + 1);
  free_exception_memory(header);
}

/// The pointer that an exception of a pointer's type holds now: the thrown one, or what a handler by reference has put
/// in its place. The object itself shows the last handler's base.
std::uint64_t pointer_of(ExceptionHeader& header) {
  const std::uint64_t in_object = header.pointer_in_object();
  return in_object != header.unwind_header.handler_value ? in_object : header.unwind_header.thrown_value;
}

[[noreturn]] void throw_first(const UnwindContext& thrower, ExceptionHeader& header) {
  header.unwind_header.exception_class = exception_class;
  header.unwind_header.thrown_value = is_pointer_type(header.exception_type)
                                          ? header.pointer_in_object()
                                          : reinterpret_cast<std::uint64_t>(header.object());
  header.unwind_header.handler_value = header.unwind_header.thrown_value;
  raise_exception(thrower, header);
}

SYSV void* allocate_exception_(std::uint64_t size) { return make_header(size) + 1; }

SYSV void free_exception_(void* object) {
  if (object != nullptr) free_exception_memory(ExceptionHeader::of_object(object));
}

SYSV void* begin_catch_(void* unwind_header) {
  ExceptionHeader* const header = ExceptionHeader::of_unwind_header(unwind_header);
  header->handler_count = std::abs(header->handler_count) + 1;
  if (header != caught_exceptions) {
    header->next_caught = caught_exceptions;
    caught_exceptions = header;
  }
  return reinterpret_cast<void*>(header->unwind_header.handler_value);
}

SYSV void end_catch_() {
  ExceptionHeader* const header = caught_exceptions;
  if (header == nullptr) return;
  if (header->handler_count < 0) {  // rethrown: its next handler owns it
    if (++header->handler_count == 0) caught_exceptions = header->next_caught;
    return;
  }
  if (--header->handler_count != 0) return;
  caught_exceptions = header->next_caught;
  release(header);
}

SYSV void personality_() { fatal_error("__gxx_personality_v0 called directly"); }

// std::exception_ptr is one pointer, to the exception's object. It has a destructor, so it is passed and returned in
// memory.

SYSV void** current_exception_(void** result) {
  *result = caught_exceptions != nullptr ? caught_exceptions->object() : nullptr;
  if (*result != nullptr) add_reference(*caught_exceptions->owner());
  return result;
}

SYSV void exception_ptr_copy_(void** self, void* const* other) {
  *self = *other;
  if (*self != nullptr) add_reference(*ExceptionHeader::of_object(*self));
}

SYSV void exception_ptr_destroy_(void** self) {
  if (*self != nullptr) release(ExceptionHeader::of_object(*self));
}

SYSV void** exception_ptr_assign_(void** self, void* const* other) {
  void* const old = *self;
  exception_ptr_copy_(self, other);
  if (old != nullptr) release(ExceptionHeader::of_object(old));
  return self;
}

}  // namespace

// Called by throw_entries.S, Windows convention, with the captured caller.
extern "C" {

[[noreturn]] void cxa_throw_from(const UnwindContext* thrower, void* object, std::uint64_t type,
                                 SYSV void (*destructor)(void*)) {
  ExceptionHeader& header = *ExceptionHeader::of_object(object);
  header.exception_type = type;
  header.destructor = destructor;
  throw_first(*thrower, header);
}

[[noreturn]] void cxa_rethrow_from(const UnwindContext* thrower) {
  ExceptionHeader* const header = caught_exceptions;
  if (header == nullptr) fatal_error("__cxa_rethrow with no active exception");
  header->handler_count = -header->handler_count;
  // The next handler may catch another base.
  if (is_pointer_type(header->exception_type)) {
    header->pointer_in_object() = header->unwind_header.thrown_value = pointer_of(*header);
  }
  raise_exception(*thrower, *header);
}

[[noreturn]] void unwind_resume_from(const UnwindContext* landing_pad, void* unwind_header) {
  unwind_to_handler(*landing_pad, *ExceptionHeader::of_unwind_header(unwind_header));
}

[[noreturn]] void rethrow_exception_from(const UnwindContext* thrower, void* const* pointer) {
  if (*pointer == nullptr) fatal_error("rethrow_exception(nullptr)");
  ExceptionHeader& primary = *ExceptionHeader::of_object(*pointer);
  add_reference(primary);
  ExceptionHeader& header = *make_header(sizeof(std::uint64_t));
  header.exception_type = primary.exception_type;
  header.destructor = primary.destructor;
  header.unwind_header.primary = &primary;
  if (is_pointer_type(primary.exception_type)) header.pointer_in_object() = pointer_of(primary);
  throw_first(*thrower, header);
}

}  // extern "C"

namespace {

// std::exception and those derived from it that the game's C++ library defines out of line. Their objects hold nothing
// of ours.

SYSV const char* exception_what_(const void* self) { return "std::exception"; }
SYSV void nothing_(void* self) {}
SYSV void logic_error_(void* self, const char* message) { log_message(0, "[eh] std::logic_error: %s", message); }

}  // namespace

const ShimEntry exception_rows[] = {
    {"___cxa_allocate_exception", shim(allocate_exception_)},
    {"___cxa_free_exception", shim(free_exception_)},
    {"___cxa_throw", shim(cxa_throw_entry)},
    {"___cxa_rethrow", shim(cxa_rethrow_entry)},
    {"___cxa_begin_catch", shim(begin_catch_)},
    {"___cxa_end_catch", shim(end_catch_)},
    {"__Unwind_Resume", shim(unwind_resume_entry)},
    {"___gxx_personality_v0", shim(personality_)},
    {"__ZSt17current_exceptionv", shim(current_exception_)},
    {"__ZNSt13exception_ptrC1ERKS_", shim(exception_ptr_copy_)},
    {"__ZNSt13exception_ptrD1Ev", shim(exception_ptr_destroy_)},
    {"__ZNSt13exception_ptraSERKS_", shim(exception_ptr_assign_)},
    {"__ZSt17rethrow_exceptionSt13exception_ptr", shim(rethrow_exception_entry)},
    {"__ZNKSt9exception4whatEv", shim(exception_what_)},
    {"__ZNSt9exceptionD2Ev", shim(nothing_)},
    {"__ZNSt9exceptionD1Ev", shim(nothing_)},
    {"__ZNSt12length_errorD1Ev", shim(nothing_)},
    {"__ZNSt12out_of_rangeD1Ev", shim(nothing_)},
    {"__ZNSt8bad_castD1Ev", shim(nothing_)},
    {"__ZNSt8bad_castC1Ev", shim(nothing_)},
    {"__ZNSt20bad_array_new_lengthC1Ev", shim(nothing_)},
    {"__ZNSt20bad_array_new_lengthD1Ev", shim(nothing_)},
    {"__ZNSt11logic_errorC2EPKc", shim(logic_error_)},
};
constinit const ShimRows exception_shims = exception_rows;

}  // namespace vlm
