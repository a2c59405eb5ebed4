// The game TLS slot of this and of other threads, stack commitment, thread records and adoption.
#include "tls/game_tls.h"

#include <doctest/doctest.h>

#include <windows.h>

#include <atomic>
#include <mutex>
#include <tuple>
#include <vector>

#include "run_alone.h"
#include "support/handles.h"
#include "tls/thread_record.h"

using namespace vlm;

namespace {

/// The library's game TLS index in a mode of the test's choosing, for as long as the object lives.
class ScopedTlsMode {
 public:
  explicit ScopedTlsMode(bool expansion) {
    if (expansion) {  // all below 64 are used up
      while (taken_.empty() || taken_.back() < teb_tls_slot_count) taken_.push_back(TlsAlloc());
    }
    game_tls_index = no_tls_index;
    game_tls_init();
    taken_.push_back(game_tls_index);
  }
  ~ScopedTlsMode() {
    for (const DWORD index : taken_) TlsFree(index);
    std::tie(game_tls_index, game_storage_offset, game_tls_expansion) = before_;
  }

 private:
  std::tuple<std::uint32_t, std::uint64_t, std::uint32_t> before_{game_tls_index, game_storage_offset,
                                                                  game_tls_expansion};
  std::vector<DWORD> taken_;
};

/// Memory in the shape of a thread environment block.
struct FakeTeb {
  std::uint64_t words[0x1800 / 8] = {};
  std::uint64_t address() { return reinterpret_cast<std::uint64_t>(words); }
  std::uint64_t& word(std::size_t offset) { return words[offset / 8]; }
};

/// A thread of its own that runs a function; its exit code.
template <class Function>
UniqueHandle start_thread(Function& function) {
  const auto start = [](void* argument) -> DWORD { return (*static_cast<Function*>(argument))(); };
  return UniqueHandle(CreateThread(nullptr, 0, start, &function, 0, nullptr));
}
DWORD wait_for(const UniqueHandle& thread) {
  DWORD code = 0;
  REQUIRE_EQ(WaitForSingleObject(thread.get(), 10'000), WAIT_OBJECT_0);
  GetExitCodeThread(thread.get(), &code);
  return code;
}

}  // namespace

TEST_CASE("a slot is found by index, in the environment block and by gs; another thread's may need an array") {
  static ThreadRecord record = {}, other = {};
  static constexpr std::uint64_t places[][3] = {{0, 0x1480, 0}, {63, 0x1678, 0}, {64, 0, 1}, {1087, 0x1FF8, 1}};
  for (const auto& [index, offset, expansion] : places) {
    const auto place = game_tls_place(static_cast<std::uint32_t>(index));
    CHECK((place.offset == offset && place.expansion == expansion));
  }
  for (const bool expansion_mode : {false, true}) {
    const ScopedTlsMode scoped(expansion_mode);
    game_tls_set(&record);
    CHECK_EQ(game_tls_get(), &record);
    game_tls_write_teb(current_teb(), &other);
    CHECK_EQ(game_storage(), other.storage);

    FakeTeb teb;
    ExpansionArray none, spare = make_expansion_array();
    CHECK_EQ(game_tls_read_teb(teb.address()), 0);
    CHECK_EQ(game_tls_prepare_teb(teb.address(), none), !expansion_mode);
    CHECK((game_tls_prepare_teb(teb.address(), spare) && spare == nullptr));
    game_tls_write_teb(teb.address(), &record);
    CHECK_EQ(game_tls_read_teb(teb.address()), reinterpret_cast<std::uint64_t>(record.storage));
    const ExpansionArray array(reinterpret_cast<void*>(teb.word(TEB_TLS_EXPANSION_SLOTS)));
    CHECK_EQ(array == nullptr, !expansion_mode);
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
    MEMORY_BASIC_INFORMATION guard, stack;
    VirtualQuery(reinterpret_cast<void*>(low + 0x3000), &guard, sizeof guard);
    VirtualQuery(reinterpret_cast<void*>(low + 0x4000), &stack, sizeof stack);
    CHECK_EQ(guard.Protect, (committed ? PAGE_READWRITE | PAGE_GUARD : 0));
    if (committed) CHECK((guard.RegionSize == 0x1000 && stack.RegionSize == size - 0x4000));
    CHECK_EQ(teb.word(TEB_STACK_LIMIT), (committed ? low + 0x4000 : low + size - 0x1000));
    VirtualFree(reinterpret_cast<void*>(low), 0, MEM_RELEASE);
  }
}

TEST_CASE("adoption reaches the threads that run already, in both modes, and only those without storage") {
  for (const bool expansion_mode : {false, true}) {
    const ScopedTlsMode scoped(expansion_mode);
    const UniqueHandle go_on(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::atomic<int> ready = 0;
    ThreadRecord* adopted = nullptr;
    const auto wait_for_adoption = [&](ThreadRecord* own) {
      ++ready;
      WaitForSingleObject(go_on.get(), INFINITE);
      if (own != nullptr) return DWORD{own == game_tls_get()};
      adopted = game_tls_get();
      return DWORD{teb_field<std::uint64_t>(current_teb(), TEB_STACK_LIMIT) == adopted->stack_low + 0x4000};
    };
    auto registered = [&] { return wait_for_adoption(register_current_thread()); };
    auto plain = [&] { return wait_for_adoption(nullptr); };
    const UniqueHandle first = start_thread(registered), second = start_thread(plain);
    while (ready < 2) Sleep(1);
    adopt_existing_threads();
    CHECK(game_tls_get() != nullptr);
    SetEvent(go_on.get());
    CHECK((wait_for(first) == 1 && wait_for(second) == 1));
    CHECK_EQ(GetThreadId(adopted->handle), GetThreadId(second.get()));
    const std::lock_guard guard(registry_lock);
    CHECK_EQ(thread_record_of_port_locked(adopted->port), adopted);
  }
}

// Fills the process's registry.
TEST_CASE("alone: the thread registry is filled" * doctest::skip()) {
  game_tls_init();
  auto nothing = [] { return DWORD{0}; };
  const UniqueHandle ended = start_thread(nothing);
  wait_for(ended);
  const auto take = [](HANDLE like) {
    HANDLE own;
    DuplicateHandle(GetCurrentProcess(), like, GetCurrentProcess(), &own, 0, FALSE, DUPLICATE_SAME_ACCESS);
    const std::lock_guard guard(registry_lock);
    return take_thread_place_locked(own, 1, current_teb(), true);
  };
  ThreadRecord* const killed = take(ended.get());  // it has not retired
  std::uint32_t given = 1;
  while (take(GetCurrentThread()) != nullptr) ++given;
  REQUIRE_EQ(given, max_threads + 1);  // the killed one's place twice
  REQUIRE_EQ(killed->life, 2);
  REQUIRE(make_suspended_thread(0, [](void*) -> DWORD { return 0; }, nullptr) == nullptr);
  auto register_and_retire = [] {
    const ThreadRecord* const record = register_current_thread();
    const bool good = record != nullptr && record->port == 0 && game_tls_get() == record;
    retire_current_thread();
    return DWORD{good && game_tls_get() == nullptr};
  };
  REQUIRE_EQ(wait_for(start_thread(register_and_retire)), 1);
  passed_alone();
}

TEST_CASE("beyond the registry's 4096 a thread gets its storage but no port; a killed one gives its place up") {
  CHECK(run_alone(L"alone: the thread registry is filled"));
}
