// Trying what may fault in the middle of a report, when memory, stack and heap are not to be trusted.
#pragma once

#include <windows.h>

namespace vlm {

/// Calls the function. False when an exception of the processor ended it, wherever it was: it must hold nothing.
bool try_in_report(void (*function)(void*), void* argument);

/// The same for something callable.
template <class Function>
bool try_in_report(Function function) {
  return try_in_report([](void* f) { (*static_cast<Function*>(f))(); }, &function);
}

/// Called first by the handler of exceptions. True when the thread was trying something and now goes on behind it.
bool recover_report(CONTEXT& context);

}  // namespace vlm
