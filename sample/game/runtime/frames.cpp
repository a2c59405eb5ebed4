// Invocations in progress, innermost first. Only what came in through il2cpp_runtime_invoke is a frame: calls between
// managed methods are plain C++ calls and leave no trace.
#include "runtime/threads.h"

#include "runtime/thread_storage.h"

Frame::Frame(const MethodInfo* method) : method(method) {
  enter_invocation();
  count_event(EVENT_INVOKE);
  if (Il2CppThread* thread = current_thread()) {
    caller = thread->innermost;
    thread->innermost = this;
  }
}

Frame::~Frame() {
  if (Il2CppThread* thread = current_thread()) thread->innermost = caller;
  leave_invocation();
}

const MethodInfo* running_method() {
  const Il2CppThread* thread = current_thread();
  return thread == nullptr || thread->innermost == nullptr ? nullptr : thread->innermost->method;
}
