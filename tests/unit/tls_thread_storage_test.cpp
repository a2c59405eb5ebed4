// The game TLS slot of this and of other threads, stack commitment, thread records and adoption.
#include "tls/game_tls.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <windows.h>

#include <atomic>
#include <vector>

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

TEST_CASE("what is set for the calling thread is found by index, in the environment block and by gs") {
  for (const TlsMode mode : {TlsMode::normal, TlsMode::expansion}) {
    const ScopedTlsMode scoped(mode);
    CHECK_EQ(game_tls_expansion, (mode == TlsMode::expansion ? 1 : 0));
    const std::uint32_t index = game_tls_index;
    game_tls_init();
    CHECK_EQ(game_tls_index, index);

    on_new_thread([] { CHECK_EQ(game_tls_get(), nullptr); });
    ThreadRecord record = {};
    game_tls_set(&record);
    CHECK_EQ(game_tls_get(), &record);
    CHECK_EQ(game_tls_read_teb(current_teb()), reinterpret_cast<std::uint64_t>(record.storage));
    ThreadRecord other = {};
    game_tls_write_teb(current_teb(), &other);
    CHECK_EQ(game_tls_get(), &other);
  }
}

TEST_CASE("another thread's slot is empty until it is written, with or without an expansion array") {
  ThreadRecord record = {}, other = {};
  const auto storage = reinterpret_cast<std::uint64_t>(record.storage);
  for (const TlsMode mode : {TlsMode::normal, TlsMode::expansion}) {
    const ScopedTlsMode scoped(mode);
    FakeTeb teb;
    CHECK_EQ(game_tls_read_teb(teb.address()), 0);
    game_tls_write_teb(teb.address(), &record);
    CHECK_EQ(game_tls_read_teb(teb.address()), storage);
    const std::uint64_t address = teb.word(TEB_TLS_EXPANSION_SLOTS);
    if (mode == TlsMode::normal) {
      CHECK_EQ(teb.word(0x1480 + 8 * game_tls_index), storage);
      CHECK_EQ(address, 0);
      continue;
    }
    auto* array = reinterpret_cast<std::uint64_t*>(address);
    REQUIRE(array != nullptr);
    CHECK_EQ(array[game_tls_index - 64], storage);
    CHECK_EQ(HeapSize(GetProcessHeap(), 0, array), 8192);
    game_tls_write_teb(teb.address(), &other);  // into the same array
    CHECK_EQ(teb.word(TEB_TLS_EXPANSION_SLOTS), address);
    CHECK_EQ(array[game_tls_index - 64], reinterpret_cast<std::uint64_t>(other.storage));
    HeapFree(GetProcessHeap(), 0, array);
  }
}

TEST_CASE("committing a stack covers all but its lowest 16 KiB; small stacks stay as they are") {
  static constexpr struct {
    std::uint64_t size;
    bool committed;
  } cases[] = {{0x100000, true}, {0x11000, true}, {0x10000, false}, {0x8000, false}};
  for (const auto& c : cases) {
    CAPTURE(c.size);
    const auto low = reinterpret_cast<std::uint64_t>(VirtualAlloc(nullptr, c.size, MEM_RESERVE, PAGE_NOACCESS));
    REQUIRE(low != 0);
    // As Windows sets a stack up: the top page in use, the guard page below it.
    VirtualAlloc(reinterpret_cast<void*>(low + c.size - 0x1000), 0x1000, MEM_COMMIT, PAGE_READWRITE);
    VirtualAlloc(reinterpret_cast<void*>(low + c.size - 0x2000), 0x1000, MEM_COMMIT, PAGE_READWRITE | PAGE_GUARD);
    FakeTeb teb;
    teb.word(TEB_STACK_BASE) = low + c.size;
    teb.word(TEB_STACK_LIMIT) = low + c.size - 0x1000;
    teb.word(TEB_DEALLOCATION_STACK) = low;
    thread_stack_commit(teb.address());

    MEMORY_BASIC_INFORMATION below, guard, stack;
    VirtualQuery(reinterpret_cast<void*>(low + 0x2000), &below, sizeof below);
    VirtualQuery(reinterpret_cast<void*>(low + 0x3000), &guard, sizeof guard);
    VirtualQuery(reinterpret_cast<void*>(low + 0x4000), &stack, sizeof stack);
    CHECK_EQ(below.State, MEM_RESERVE);
    if (c.committed) {
      CHECK_EQ(guard.State, MEM_COMMIT);
      CHECK_EQ(guard.Protect, PAGE_READWRITE | PAGE_GUARD);
      CHECK_EQ(guard.RegionSize, 0x1000);
      CHECK_EQ(stack.Protect, PAGE_READWRITE);
      CHECK_EQ(stack.RegionSize, c.size - 0x4000);
      CHECK_EQ(teb.word(TEB_STACK_LIMIT), low + 0x4000);
    } else {
      CHECK_EQ(guard.State, MEM_RESERVE);
      CHECK_EQ(teb.word(TEB_STACK_LIMIT), low + c.size - 0x1000);
    }
    VirtualFree(reinterpret_cast<void*>(low), 0, MEM_RELEASE);
  }
}

TEST_CASE("a thread that commits its own stack can use all of it") {
  on_new_thread([] {
    thread_stack_commit(current_teb());
    const std::uint64_t limit = teb_field<std::uint64_t>(current_teb(), TEB_STACK_LIMIT);
    CHECK_EQ(limit, teb_field<std::uint64_t>(current_teb(), TEB_DEALLOCATION_STACK) + 0x4000);
    auto* bottom = reinterpret_cast<volatile char*>(limit);
    *bottom = 1;  // far below the stack pointer, as game code with a large frame does
    CHECK_EQ(*bottom, 1);
  });
}

TEST_CASE("registering a thread gives it one record, with its own handle, stack and port") {
  game_tls_init();
  ThreadRecord* records[2] = {};
  for (auto& record : records) {
    on_new_thread([&record] {
      record = register_current_thread();
      REQUIRE(record != nullptr);
      CHECK_EQ(register_current_thread(), record);
      CHECK_EQ(game_tls_get(), record);
      CHECK_EQ(record->thread_id, GetCurrentThreadId());
      CHECK_EQ(GetThreadId(record->handle), GetCurrentThreadId());
      const auto frame = reinterpret_cast<std::uint64_t>(__builtin_frame_address(0));
      CHECK_GE(frame, record->stack_low);
      CHECK_LT(frame, record->stack_high);
      CHECK_EQ(record->running, 1);
    });
    CHECK_EQ(thread_record_of_port(record->port), record);
    CHECK_EQ(WaitForSingleObject(record->handle, 0), WAIT_OBJECT_0);  // still the thread's, after its end
  }
  CHECK_EQ(records[1]->port, records[0]->port + 1);
  for (const std::uint32_t port : {0u, 4095u, records[1]->port + 1, 4096u + 4096u, 0xFFFFFFFFu}) {
    CHECK_EQ(thread_record_of_port(port), nullptr);
  }
}

TEST_CASE("adoption reaches the threads that run already, in both modes, and only those without storage") {
  for (const TlsMode mode : {TlsMode::normal, TlsMode::expansion}) {
    CAPTURE(mode == TlsMode::expansion);
    const ScopedTlsMode scoped(mode);
    struct Waiting {
      HANDLE go_on;
      bool registers;
      std::atomic<bool> ready = false;
      ThreadRecord* own = nullptr;    // made by the thread itself
      ThreadRecord* found = nullptr;  // what it finds after adoption
      std::uint64_t stack_limit = 0;
    };
    const UniqueHandle go_on(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    Waiting waiting[2] = {{go_on.get(), false}, {go_on.get(), true}};
    const auto start = [](void* argument) -> DWORD {
      auto& self = *static_cast<Waiting*>(argument);
      if (self.registers) self.own = register_current_thread();
      self.ready = true;
      WaitForSingleObject(self.go_on, INFINITE);
      self.found = game_tls_get();
      self.stack_limit = teb_field<std::uint64_t>(current_teb(), TEB_STACK_LIMIT);
      return 0;
    };
    UniqueHandle threads[2];
    for (int i = 0; i < 2; ++i) {
      threads[i].reset(CreateThread(nullptr, 0, start, &waiting[i], 0, nullptr));
      while (!waiting[i].ready) Sleep(1);
    }
    adopt_existing_threads();
    CHECK(game_tls_get() != nullptr);
    SetEvent(go_on.get());
    for (const UniqueHandle& thread : threads) REQUIRE_EQ(WaitForSingleObject(thread.get(), 10'000), WAIT_OBJECT_0);
    const ThreadRecord* adopted = waiting[0].found;
    REQUIRE(adopted != nullptr);
    CHECK_EQ(adopted->thread_id, GetThreadId(threads[0].get()));
    CHECK_EQ(GetThreadId(adopted->handle), adopted->thread_id);
    CHECK_EQ(adopted->running, 1);
    CHECK_EQ(thread_record_of_port(adopted->port), adopted);
    CHECK_EQ(waiting[0].stack_limit, adopted->stack_low + 0x4000);
    CHECK_EQ(waiting[1].found, waiting[1].own);
  }
}

// Fills the process's registry for good.
TEST_CASE("alone: the thread registry is filled" * doctest::skip()) {
  game_tls_init();
  std::vector<ThreadRecord> records(max_threads);
  std::uint32_t given = 0;
  while (given < max_threads && register_thread_record(&records[given])) ++given;
  REQUIRE_EQ(given, max_threads);
  REQUIRE_EQ(records.back().port, first_thread_port + max_threads - 1);
  REQUIRE_EQ(thread_record_of_port(records.back().port), &records.back());
  ThreadRecord late = {};
  REQUIRE(!register_thread_record(&late));
  REQUIRE_EQ(late.port, 0);
  on_new_thread([] {
    ThreadRecord* record = register_current_thread();
    REQUIRE(record != nullptr);
    REQUIRE_EQ(record->port, 0);
    REQUIRE_EQ(game_tls_get(), record);
  });
  passed_alone();
}

TEST_CASE("a thread beyond the registry's 4096 gets its storage but no port") {
  CHECK(run_alone("alone: the thread registry is filled"));
}
