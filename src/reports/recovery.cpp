#include "reports/recovery.h"

namespace vlm {
namespace {

constinit thread_local const CONTEXT* recovery = nullptr;  // where the thread goes on after a fault

}  // namespace

// The context is captured here and comes back here, with the registers that a callee keeps as they were: what has
// changed since lies in memory.
[[gnu::noinline]] bool try_in_report(void (*function)(void*), void* argument) {
  CONTEXT here;
  volatile bool is_tried = false;
  const CONTEXT* const volatile outer = recovery;
  RtlCaptureContext(&here);
  const bool failed = is_tried;
  if (!failed) {
    is_tried = true;
    recovery = &here;
    function(argument);
  }
  recovery = outer;
  return !failed;
}

bool recover_report(CONTEXT& context) {
  if (recovery == nullptr) return false;
  context = *recovery;
  return true;
}

}  // namespace vlm
