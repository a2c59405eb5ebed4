// Monitors: an object as a recursive lock with a condition.
//
// Waiting is spinning, and time is counted in pauses, since the game imports neither locks nor clocks.
#include "runtime/runtime.h"

#include "runtime/threads.h"

struct Monitor {
  SpinLock guard;       // of the fields below; never held while waiting
  Il2CppThread* owner;  // null while nobody holds the monitor
  uint32_t entries;     // how often its owner entered
  uint32_t waiting;     // threads in wait
  uint32_t wakeups;     // how many of them may go on
};

static constexpr uint64_t pauses_per_millisecond = 20000;  // roughly, on a machine of some GHz
static constexpr uint64_t forever = ~uint64_t{0};

static uint64_t pauses(uint32_t milliseconds) {
  return milliseconds == ~uint32_t{0} ? forever : milliseconds * pauses_per_millisecond;
}

static Monitor* monitor_of(Il2CppObject* object) {
  Monitor* monitor = __atomic_load_n(&object->monitor, __ATOMIC_ACQUIRE);
  if (monitor != nullptr) return monitor;
  auto* made = static_cast<Monitor*>(calloc(1, sizeof(Monitor)));
  if (__atomic_compare_exchange_n(&object->monitor, &monitor, made, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
    return made;
  }
  free(made);
  return monitor;
}

/// Tries `attempt` until it succeeds or the time is up.
template <class Attempt>
static bool spin(uint64_t times, Attempt attempt) {
  for (uint64_t i = 0;; ++i) {
    if (attempt()) return true;
    if (times != forever && i >= times) return false;
    __builtin_ia32_pause();
  }
}

static bool enter(Monitor* monitor, uint32_t entries, uint64_t times) {
  Il2CppThread* self = il2cpp_thread_attach(&domain());
  return spin(times, [&] {
    const Locked locked(monitor->guard);
    if (monitor->owner != nullptr && monitor->owner != self) return false;
    monitor->owner = self;
    monitor->entries += entries;
    return true;
  });
}

static bool is_owner(Monitor* monitor) {
  const Locked locked(monitor->guard);
  return monitor->owner != nullptr && monitor->owner == il2cpp_thread_current();
}

static bool require_owner(Monitor* monitor) {
  if (is_owner(monitor)) return true;
  raise(exception_class, Text() << "the calling thread does not hold the monitor");
  return false;
}

void il2cpp_monitor_enter(Il2CppObject* object) { enter(monitor_of(object), 1, forever); }

bool il2cpp_monitor_try_enter(Il2CppObject* object, uint32_t milliseconds) {
  return enter(monitor_of(object), 1, pauses(milliseconds));
}

void il2cpp_monitor_exit(Il2CppObject* object) {
  Monitor* monitor = monitor_of(object);
  if (!require_owner(monitor)) return;
  const Locked locked(monitor->guard);
  if (--monitor->entries == 0) monitor->owner = nullptr;
}

static void wake(Il2CppObject* object, bool all) {
  Monitor* monitor = monitor_of(object);
  if (!require_owner(monitor)) return;
  const Locked locked(monitor->guard);
  if (all) {
    monitor->wakeups = monitor->waiting;
  } else if (monitor->wakeups < monitor->waiting) {
    ++monitor->wakeups;
  }
}

void il2cpp_monitor_pulse(Il2CppObject* object) { wake(object, false); }
void il2cpp_monitor_pulse_all(Il2CppObject* object) { wake(object, true); }

bool il2cpp_monitor_try_wait(Il2CppObject* object, uint32_t milliseconds) {
  Monitor* monitor = monitor_of(object);
  if (!require_owner(monitor)) return false;
  uint32_t entries;
  {
    const Locked locked(monitor->guard);
    entries = monitor->entries;
    monitor->entries = 0;
    monitor->owner = nullptr;
    ++monitor->waiting;
  }
  const bool woken = spin(pauses(milliseconds), [&] {
    const Locked locked(monitor->guard);
    if (monitor->wakeups == 0) return false;
    --monitor->wakeups;
    --monitor->waiting;
    return true;
  });
  if (!woken) {
    const Locked locked(monitor->guard);
    --monitor->waiting;
    if (monitor->wakeups > monitor->waiting) monitor->wakeups = monitor->waiting;
  }
  enter(monitor, entries, forever);
  return woken;
}

void il2cpp_monitor_wait(Il2CppObject* object) { il2cpp_monitor_try_wait(object, ~uint32_t{0}); }
