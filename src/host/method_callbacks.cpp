// Windows functions that game code calls in place of a managed method's code: how a mod hooks a method.
#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <span>

#include "abi/callbacks.h"
#include "host/managed_calls.h"
#include "host/reflection.h"
#include "support/locks.h"
#include "vlm.h"

namespace vlm {
namespace {

struct MethodCallback {
  const void* method;
  void* function;
  void* thunk;
  const MethodCallback* next;
};

constinit SrwLock method_callbacks_lock;
constinit const MethodCallback* method_callbacks = nullptr;  // guarded by the lock; newest first, never freed

constexpr std::uint32_t max_value_result = 256;  // bytes
constexpr std::uint32_t max_alignment = 16;

bool is_too_large(const ArgClass& class_, std::uint32_t size) {
  return class_.kind == ArgKind::value && (class_.size > size || class_.alignment > max_alignment);
}

/// Sets a record's classes; false for a method that cannot be called this way.
bool describe(IcallRecord& record, const MethodInfo* method) {
  // Every method gets its own MethodInfo behind its parameters; with an instance before them it still has to fit.
  constexpr std::uint32_t max_parameters = max_managed_arguments - 2;
  if (REFLECT(il2cpp_method_get_param_count)(method) > max_parameters) return false;
  classify_method(method, record);
  record.arguments[record.argument_count++] = integer_class;
  const std::span arguments(record.arguments, static_cast<std::size_t>(record.argument_count));
  return std::none_of(arguments.begin(), arguments.end(),
                      [](const ArgClass& argument) { return is_too_large(argument, max_value_argument); }) &&
         !is_too_large(record.result, max_value_result);
}

const MethodCallback* find_locked(const void* method, const void* function) {
  const MethodCallback* each = method_callbacks;
  while (each != nullptr && (each->method != method || each->function != function)) each = each->next;
  return each;
}

void* thunk_of(const void* method, const void* function) {
  const std::shared_lock guard(method_callbacks_lock);
  const MethodCallback* const known = find_locked(method, function);
  return known != nullptr ? known->thunk : nullptr;
}

/// Null unless the pointer is a thunk of ours.
void* function_of_thunk(const void* pointer) {
  const std::shared_lock guard(method_callbacks_lock);
  for (const MethodCallback* each = method_callbacks; each != nullptr; each = each->next) {
    if (each->thunk == pointer) return each->function;
  }
  return nullptr;
}

}  // namespace
}  // namespace vlm

extern "C" {

void* vlm_wrap_method_callback(const void* method, void* function) {
  using namespace vlm;
  if (method == nullptr || function == nullptr || reflection_api.image == nullptr) return nullptr;
  if (void* const known = thunk_of(method, function)) return known;
  // With nothing held: the game's reflection functions may throw.
  IcallRecord described;
  if (!describe(described, static_cast<const MethodInfo*>(method))) return nullptr;

  const std::lock_guard guard(method_callbacks_lock);
  if (const MethodCallback* const known = find_locked(method, function)) return known->thunk;
  IcallRecord* const record = make_record("managed method callback", function);
  std::ranges::copy(described.arguments, record->arguments);
  record->argument_count = described.argument_count;
  record->result = described.result;
  record->state = 1;
  plan_calls(*record);
  void* const thunk = make_thunk(*record);
  method_callbacks = new MethodCallback{method, function, thunk, method_callbacks};
  return thunk;
}

void* vlm_unwrap_callback(void* pointer) {
  if (void* const function = vlm::function_of_thunk(pointer)) return function;
  return vlm::function_of_callback_stub(pointer);
}

}  // extern "C"
