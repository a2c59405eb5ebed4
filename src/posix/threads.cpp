// POSIX threads and thread-specific data on Windows threads.
//
// A game's pthread_t is the address of its ThreadRecord. Thread-specific data is the record's storage array, indexed
// by key: the same memory that patched game code reaches through gs, so inlined and called accesses agree.
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "diag/log.h"
#include "posix/shims.h"
#include "support/darwin_errno.h"
#include "support/procedures.h"
#include "support/sysv.h"
#include "support/text.h"
#include "tls/game_tls.h"
#include "tls/x87.h"

namespace vlm {
namespace {

constexpr std::size_t game_stack_size = 0x800000;
constexpr std::size_t pthread_attr_size = 64;

using StartRoutine = SYSV void* (*)(void*);
using KeyDestructor = SYSV void (*)(void*);

// ---- Keys -----------------------------------------------------------------------------------------------------------

constexpr std::uint64_t key_count = thread_storage_slots;
constexpr int destructor_passes = 4;

/// Without a lock, so that a collector may make a key while others stand still. A thread's values are touched by that
/// thread alone.
struct Key {
  std::atomic<bool> in_use;
  std::atomic<KeyDestructor> destructor;
};
Key keys[key_count];  // key 0 is never handed out

SYSV std::int32_t pthread_key_create_(std::uint64_t* key, KeyDestructor destructor) {
  for (std::uint64_t i = 1; i < key_count; ++i) {
    if (keys[i].in_use.exchange(true)) continue;
    keys[i].destructor = destructor;
    *key = i;
    return 0;
  }
  return DARWIN_EAGAIN;
}

SYSV std::int32_t pthread_key_delete_(std::uint64_t key) {
  if (key < key_count) keys[key].in_use = false;
  return 0;
}

// The ways below are taken by threads that have no storage yet. They are functions of their own, and called last, so
// that the everyday way needs no frame: a few loads, hardly more than an inlined access.

[[gnu::noinline]] SYSV void* getspecific_of_new_thread(std::uint64_t key) {
  const ThreadRecord* record = register_current_thread();
  return record != nullptr ? record->storage[key] : nullptr;
}

[[gnu::noinline]] SYSV std::int32_t setspecific_of_new_thread(std::uint64_t key, void* value) {
  ThreadRecord* record = register_current_thread();
  if (record == nullptr) return DARWIN_ENOMEM;
  record->storage[key] = value;
  return 0;
}

SYSV void* pthread_getspecific_(std::uint64_t key) {
  if (key >= key_count) [[unlikely]]
    return nullptr;
  void** const values = game_storage();
  if (values == nullptr) [[unlikely]]
    return getspecific_of_new_thread(key);
  return values[key];
}

SYSV std::int32_t pthread_setspecific_(std::uint64_t key, void* value) {
  if (key >= key_count) [[unlikely]]
    return DARWIN_EINVAL;
  void** const values = game_storage();
  if (values == nullptr) [[unlikely]]
    return setspecific_of_new_thread(key, value);
  values[key] = value;
  return 0;
}

/// A destructor may store a value again: another pass sees it, up to a limit.
void destroy_values(ThreadRecord* record) {
  for (int pass = 0; pass < destructor_passes; ++pass) {
    bool called = false;
    for (std::uint64_t i = 0; i < key_count; ++i) {
      void* const value = record->storage[i];
      if (value == nullptr || !keys[i].in_use) continue;
      const KeyDestructor destructor = keys[i].destructor;
      if (destructor == nullptr) continue;
      record->storage[i] = nullptr;
      destructor(value);
      called = true;
    }
    if (!called) return;
  }
}

// ---- Threads --------------------------------------------------------------------------------------------------------

struct StartBlock {
  StartRoutine start;
  void* argument;
};

DWORD WINAPI thread_procedure(void* parameter) {
  const StartBlock block = *static_cast<StartBlock*>(parameter);
  delete static_cast<StartBlock*>(parameter);
  const std::uint16_t windows_word = x87_control_word();
  set_x87_control_word(macos_x87_control_word);
  block.start(block.argument);
  destroy_values(register_current_thread());
  set_x87_control_word(windows_word);  // for what else hears of the thread's end
  return 0;
}

/// One line in the log, however often a game tries.
std::int32_t creation_failed() {
  static constinit std::atomic<bool> told = false;
  if (!told.exchange(true)) {
    log_message(0, "[thread] no thread can be made (win32 %lu); at most %u are alive at once", GetLastError(),
                max_threads);
  }
  shim_errno = DARWIN_EAGAIN;
  return DARWIN_EAGAIN;
}

/// The id stands where the caller wants it before the thread runs.
SYSV std::int32_t pthread_create_(ThreadRecord** thread, const void*, StartRoutine start, void* argument) {
  std::unique_ptr<StartBlock> block(new (std::nothrow) StartBlock{start, argument});
  if (!block) return creation_failed();
  ThreadRecord* const record = make_suspended_thread(game_stack_size, thread_procedure, block.get());
  if (record == nullptr) return creation_failed();
  block.release();
  *thread = record;
  ResumeThread(record->handle);
  return 0;
}

SYSV ThreadRecord* pthread_self_() { return register_current_thread(); }

SYSV std::uint64_t pthread_get_stackaddr_np_(const ThreadRecord* thread) {
  return thread != nullptr ? thread->stack_high : 0;
}

SYSV std::int32_t pthread_setname_np_(const char* name) {
  using SetThreadDescription = HRESULT WINAPI(HANDLE, const wchar_t*);  // since Windows 10
  static const auto set_description =
      find_procedure<SetThreadDescription>(GetModuleHandleW(L"kernel32.dll"), "SetThreadDescription");
  const auto wide = to_host_path(name);
  if (set_description != nullptr && wide) set_description(GetCurrentThread(), wide.get());
  return 0;
}

SYSV std::int32_t pthread_setcancelstate_(std::int32_t, std::int32_t* old) {
  if (old != nullptr) *old = 0;
  return 0;
}

SYSV std::int32_t pthread_attr_init_(void* attribute) {
  std::memset(attribute, 0, pthread_attr_size);
  return 0;
}

/// Calls that have nothing to do here: there is no join, no fork and nothing to give back.
SYSV std::int32_t succeed() { return 0; }

}  // namespace

const ShimEntry thread_rows[] = {
    {"_pthread_create", shim(pthread_create_)},
    {"_pthread_self", shim(pthread_self_)},
    {"_pthread_detach", shim(succeed)},
    {"_pthread_get_stackaddr_np", shim(pthread_get_stackaddr_np_)},
    {"_pthread_setname_np", shim(pthread_setname_np_)},
    {"_pthread_setcancelstate", shim(pthread_setcancelstate_)},
    {"_pthread_atfork", shim(succeed)},
    {"_pthread_attr_init", shim(pthread_attr_init_)},
    {"_pthread_attr_destroy", shim(succeed)},
    {"_pthread_key_create", shim(pthread_key_create_)},
    {"_pthread_key_delete", shim(pthread_key_delete_)},
    {"_pthread_getspecific", shim(pthread_getspecific_)},
    {"_pthread_setspecific", shim(pthread_setspecific_)},
};
constinit const ShimRows thread_shims = thread_rows;

}  // namespace vlm
