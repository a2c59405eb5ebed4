// The game TLS slot of this and of other threads, stack commitment, thread records and adoption.
#include "tls/game_tls.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <windows.h>

#include <atomic>
#include <mutex>

#include "game_tls_mode.h"
#include "run_alone.h"
#include "support/handles.h"
#include "tls/thread_record.h"

using namespace vlm;

namespace {

/// Memory in the shape of a thread environment block.
struct FakeTeb {
  alignas(16) std::byte bytes[0x1800] = {};
  std::uint64_t address() { return reinterpret_cast<std::uint64_t>(bytes); }
  std::uint64_t& word(std::size_t offset) { return *reinterpret_cast<std::uint64_t*>(bytes + offset); }
};

/// Runs a function on a thread of its own to its end.
template <class Function>
void on_new_thread(Function function) {
  const auto start = [](void* argument) -> DWORD {
    (*static_cast<Function*>(argument))();
    return 0;
  };
  const UniqueHandle thread(CreateThread(nullptr, 0, start, &function, 0, nullptr));
  REQUIRE(thread);
  REQUIRE_EQ(WaitForSingleObject(thread.get(), 10'000), WAIT_OBJECT_0);
}

}  // namespace

TEST_CASE("the slot's place follows from the index") {
  static constexpr struct {
    std::uint32_t index;
    std::uint64_t offset;
    std::uint32_t expansion;
  } cases[] = {{0, 0x1480, 0}, {5, 0x14A8, 0}, {63, 0x1678, 0}, {64, 0, 1}, {70, 0x30, 1}, {1087, 0x1FF8, 1}};
  for (const auto& c : cases) {
    CHECK_EQ(game_tls_place(c.index).offset, c.offset);
    CHECK_EQ(game_tls_place(c.index).expansion, c.expansion);
  }
}

TEST_CASE("a slot is found by index, in the environment block and by gs; another thread's may need an array") {
  static ThreadRecord record = {}, other = {};
  const auto storage = reinterpret_cast<std::uint64_t>(record.storage);
  for (const TlsMode mode : {TlsMode::normal, TlsMode::expansion}) {
    const ScopedTlsMode scoped(mode);
    on_new_thread([] { CHECK_EQ(game_tls_get(), nullptr); });
    game_tls_set(&record);
    CHECK_EQ(game_tls_get(), &record);
    CHECK_EQ(game_tls_read_teb(current_teb()), storage);
    game_tls_write_teb(current_teb(), &other);
    CHECK_EQ(game_storage(), other.storage);

    FakeTeb teb;
    ExpansionArray none, spare = make_expansion_array();
    CHECK_EQ(game_tls_read_teb(teb.address()), 0);
    CHECK_EQ(game_tls_prepare_teb(teb.address(), none), (mode == TlsMode::normal));
    CHECK(game_tls_prepare_teb(teb.address(), spare));
    CHECK(spare == nullptr);
    game_tls_write_teb(teb.address(), &record);
    CHECK_EQ(game_tls_read_teb(teb.address()), storage);
    const ExpansionArray array(reinterpret_cast<void*>(teb.word(TEB_TLS_EXPANSION_SLOTS)));
    CHECK_EQ(array == nullptr, (mode == TlsMode::normal));
  }
}

TEST_CASE("committing a stack covers all but its lowest 16 KiB; small stacks stay as they are") {
  for (const std::uint64_t size : {0x100000, 0x11000, 0x10000}) {
    CAPTURE(size);
    const bool committed = size > 0x10000;
    const auto low = reinterpret_cast<std::uint64_t>(VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS));
    FakeTeb teb;
    teb.word(TEB_STACK_BASE) = low + size;
    teb.word(TEB_STACK_LIMIT) = low + size - 0x1000;
    teb.word(TEB_DEALLOCATION_STACK) = low;
    thread_stack_commit(teb.address());
    MEMORY_BASIC_INFORMATION below, guard, stack;
    VirtualQuery(reinterpret_cast<void*>(low + 0x2000), &below, sizeof below);
    VirtualQuery(reinterpret_cast<void*>(low + 0x3000), &guard, sizeof guard);
    VirtualQuery(reinterpret_cast<void*>(low + 0x4000), &stack, sizeof stack);
    CHECK_EQ(below.State, MEM_RESERVE);
    CHECK_EQ(guard.State, (committed ? MEM_COMMIT : MEM_RESERVE));
    if (committed) CHECK_EQ(guard.Protect, PAGE_READWRITE | PAGE_GUARD);
    if (committed) CHECK_EQ(stack.RegionSize, size - 0x4000);
    CHECK_EQ(teb.word(TEB_STACK_LIMIT), (committed ? low + 0x4000 : low + size - 0x1000));
    VirtualFree(reinterpret_cast<void*>(low), 0, MEM_RELEASE);
  }
}

TEST_CASE("adoption reaches the threads that run already, in both modes, and only those without storage") {
  for (const TlsMode mode : {TlsMode::normal, TlsMode::expansion}) {
    const ScopedTlsMode scoped(mode);
    struct Waiting {
      HANDLE go_on;
      bool registers;
      std::atomic<bool> ready = false;
      ThreadRecord* own = nullptr;    // made by the thread itself
      ThreadRecord* found = nullptr;  // what it finds after adoption
    };
    const UniqueHandle go_on(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    Waiting waiting[2] = {{go_on.get(), false}, {go_on.get(), true}};
    const auto start = [](void* argument) -> DWORD {
      auto& self = *static_cast<Waiting*>(argument);
      if (self.registers) self.own = register_current_thread();
      self.ready = true;
      WaitForSingleObject(self.go_on, INFINITE);
      self.found = game_tls_get();
      return teb_field<std::uint64_t>(current_teb(), TEB_STACK_LIMIT) != self.found->stack_low + 0x4000;
    };
    UniqueHandle threads[2];
    for (int i = 0; i < 2; ++i) {
      threads[i].reset(CreateThread(nullptr, 0, start, &waiting[i], 0, nullptr));
      while (!waiting[i].ready) Sleep(1);
    }
    adopt_existing_threads();
    CHECK(game_tls_get() != nullptr);
    SetEvent(go_on.get());
    DWORD differs = 1;
    for (const UniqueHandle& thread : threads) REQUIRE_EQ(WaitForSingleObject(thread.get(), 10'000), WAIT_OBJECT_0);
    GetExitCodeThread(threads[0].get(), &differs);
    const ThreadRecord* const adopted = waiting[0].found;
    REQUIRE(adopted != nullptr);
    CHECK_EQ(differs, 0);
    CHECK_EQ(GetThreadId(adopted->handle), GetThreadId(threads[0].get()));
    const std::lock_guard guard(registry_lock);
    CHECK_EQ(thread_record_of_port_locked(adopted->port), adopted);
    CHECK_EQ(waiting[1].found, waiting[1].own);
  }
}

// Fills the process's registry.
TEST_CASE("alone: the thread registry is filled" * doctest::skip()) {
  game_tls_init();
  const UniqueHandle ended(CreateThread(nullptr, 0, [](void*) -> DWORD { return 0; }, nullptr, 0, nullptr));
  WaitForSingleObject(ended.get(), INFINITE);
  const auto take = [](HANDLE like) {
    HANDLE own;
    DuplicateHandle(GetCurrentProcess(), like, GetCurrentProcess(), &own, 0, FALSE, DUPLICATE_SAME_ACCESS);
    const std::lock_guard guard(registry_lock);
    ThreadRecord* const record = take_thread_place_locked(own, 1, current_teb(), true);
    if (record == nullptr) CloseHandle(own);
    return record;
  };
  ThreadRecord* const killed = take(ended.get());  // it has not retired
  std::uint32_t given = 1;
  while (take(GetCurrentThread()) != nullptr) ++given;
  REQUIRE_EQ(given, max_threads + 1);  // the killed one's place twice
  REQUIRE_EQ(killed->life, 2);
  REQUIRE(make_suspended_thread(0, [](void*) -> DWORD { return 0; }, nullptr) == nullptr);
  on_new_thread([] {
    ThreadRecord* record = register_current_thread();
    REQUIRE(record != nullptr);
    REQUIRE_EQ(record->port, 0);
    REQUIRE_EQ(game_tls_get(), record);
    retire_current_thread();
    REQUIRE_EQ(game_tls_get(), nullptr);
  });
  passed_alone();
}

TEST_CASE("beyond the registry's 4096 a thread gets its storage but no port; a killed one gives its place up") {
  CHECK(run_alone("alone: the thread registry is filled"));
}
