// Invocations in progress, innermost first. Only what came in through il2cpp_runtime_invoke is a frame: calls between
// managed methods are plain C++ calls and leave no trace.
#include "runtime/threads.h"

#include "runtime/thread_storage.h"

struct Il2CppStackFrameInfo {
  const MethodInfo* method;
};

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

/// Frames of another thread are safe to look at only while it stands still.
void il2cpp_thread_walk_frame_stack(Il2CppThread* thread, Il2CppCallback callback, void* user_data) {
  const auto report = reinterpret_cast<void (*)(const Il2CppStackFrameInfo*, void*)>(callback);
  for (const Frame* frame = thread->innermost; frame != nullptr; frame = frame->caller) {
    const Il2CppStackFrameInfo info = {frame->method};
    report(&info, user_data);
  }
}

bool il2cpp_thread_get_frame_at(Il2CppThread* thread, int32_t depth, Il2CppStackFrameInfo* info) {
  const Frame* frame = depth < 0 ? nullptr : thread->innermost;
  while (frame != nullptr && depth-- > 0) frame = frame->caller;
  if (frame == nullptr) return false;
  *info = {frame->method};
  return true;
}

int32_t il2cpp_thread_get_stack_depth(Il2CppThread* thread) {
  int32_t depth = 0;
  for (const Frame* frame = thread->innermost; frame != nullptr; frame = frame->caller) ++depth;
  return depth;
}

bool il2cpp_thread_get_top_frame(Il2CppThread* thread, Il2CppStackFrameInfo* info) {
  return il2cpp_thread_get_frame_at(thread, 0, info);
}

// The same for the calling thread, which may not be attached.

void il2cpp_current_thread_walk_frame_stack(Il2CppCallback callback, void* user_data) {
  if (thread_is_attached()) il2cpp_thread_walk_frame_stack(current_thread(), callback, user_data);
}
bool il2cpp_current_thread_get_frame_at(int32_t depth, Il2CppStackFrameInfo* info) {
  return thread_is_attached() && il2cpp_thread_get_frame_at(current_thread(), depth, info);
}
bool il2cpp_current_thread_get_top_frame(Il2CppStackFrameInfo* info) {
  return il2cpp_current_thread_get_frame_at(0, info);
}
int32_t il2cpp_current_thread_get_stack_depth() { return static_cast<int32_t>(invocation_depth()); }
