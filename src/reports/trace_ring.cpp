#include "reports/trace_ring.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

#include "tls/game_tls.h"

extern "C" {
std::size_t copy_checked_text(char* to, std::uint64_t from, std::size_t size);  // checked_text.S
extern const std::byte checked_text_read[];
extern const std::byte checked_text_fault[];
}

namespace vlm {
namespace {

static_assert(sizeof(TracedCall) + sizeof(std::uint64_t) == 512);

constinit std::atomic<TraceRing*> rings{nullptr};  // put in front without a lock
constinit DWORD thread_end = FLS_OUT_OF_INDEXES;   // tells when a thread ends; written once, before the first call

enum class ThreadState : std::uint8_t { unknown, records, is_silent };  // silent: it ends, or there is no memory
constinit thread_local ThreadState thread_state = ThreadState::unknown;
constinit thread_local TraceRing* thread_ring = nullptr;

/// Addresses between those that no program has and those that only the system has.
constexpr bool may_be_address(std::uint64_t value) { return value >= 0x10000 && value < 0x7FFF'FFFF'0000; }

// ---- Pages that could not be read -----------------------------------------------------------------------------------

// Registers hold whatever was left in them. A page that could not be read is not tried again for a while, since a fault
// costs as much as a hundred calls. Races only cost another try.
constexpr std::uint64_t page_size = 4096;
constexpr std::int64_t patience = 1'000'000;  // counts of the performance counter, mostly of 100 ns
struct BadPage {
  std::atomic<std::uint64_t> page;
  std::atomic<std::int64_t> found;
};
constinit BadPage bad_pages[256] = {};

BadPage& place_of_page(std::uint64_t page) { return bad_pages[(page ^ page >> 8) % std::size(bad_pages)]; }

bool is_known_bad(std::uint64_t address, std::int64_t now) {
  const BadPage& place = place_of_page(address / page_size);
  return place.page.load(std::memory_order_relaxed) == address / page_size &&
         now - place.found.load(std::memory_order_relaxed) < patience;
}

void remember_bad(std::uint64_t address, std::int64_t now) {
  BadPage& place = place_of_page(address / page_size);
  place.found.store(now, std::memory_order_relaxed);
  place.page.store(address / page_size, std::memory_order_relaxed);
}

/// First of all handlers: the fault of a checked read is no crash.
LONG CALLBACK end_checked_read(EXCEPTION_POINTERS* exception) {
  CONTEXT& context = *exception->ContextRecord;
  if (context.Rip != reinterpret_cast<std::uint64_t>(checked_text_read)) return EXCEPTION_CONTINUE_SEARCH;
  const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
  if (record.ExceptionCode == STATUS_GUARD_PAGE_VIOLATION && record.NumberParameters >= 2) {
    // Reading took the guard away, by which another thread's stack may be meant to grow.
    DWORD before;
    auto* const page = reinterpret_cast<void*>(record.ExceptionInformation[1] & ~(page_size - 1));
    VirtualProtect(page, page_size, PAGE_READWRITE | PAGE_GUARD, &before);
  }
  context.Rip = reinterpret_cast<std::uint64_t>(checked_text_fault);
  return EXCEPTION_CONTINUE_EXECUTION;
}

// ---- Recording ------------------------------------------------------------------------------------------------------

/// Where a character begins that is none, or that cannot be shown. Tabs and ends of lines are shown.
std::size_t printable_prefix(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size()) {
    const auto lead = static_cast<std::uint8_t>(text[at]);
    const std::size_t size = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
    if (size == 0 || size > text.size() - at) break;
    if (size == 1 && (lead == 0x7F || (lead < 0x20 && (lead < '\t' || lead > '\r')))) break;
    if (!std::ranges::all_of(text.substr(at + 1, size - 1), [](char c) { return (c & 0xC0) == 0x80; })) break;
    at += size;
  }
  return at;
}

/// Copies the texts among the arguments.
void copy_texts(TracedCall& call) {
  std::size_t used = 0;
  for (std::size_t i = 0; i < TracedCall::argument_count; ++i) {
    call.text_sizes[i] = 0;
    const std::uint64_t address = call.arguments[i];
    const std::size_t room = std::min(TracedCall::longest_text, TracedCall::text_room - used);
    if (!may_be_address(address) || room == 0 || is_known_bad(address, call.time)) continue;
    char* const text = call.texts.data() + used;
    const std::size_t size = copy_checked_text(text, address, room);
    if (size > room) {  // the complement of how far it got
      remember_bad(address + ~size, call.time);
      continue;
    }
    call.is_cut[i] = size == room;
    const std::size_t whole = printable_prefix({text, size});
    // The last character of a cut text may be half a one.
    if (whole == 0 || (whole != size && !(call.is_cut[i] && size - whole < 4))) continue;
    call.text_sizes[i] = static_cast<std::uint8_t>(whole);
    used += whole;
  }
}

}  // namespace

/// Where rings are made and written to.
struct TraceRecorder {
  /// A ring whose thread has ended and whose calls are written, or a new one. Null without memory.
  static TraceRing* take_ring() {
    for (TraceRing* ring = first_trace_ring(); ring != nullptr; ring = ring->next) {
      bool free = true;
      if (ring->is_free_.compare_exchange_strong(free, false)) return ring;
    }
    void* const memory = VirtualAlloc(nullptr, sizeof(TraceRing), MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (memory == nullptr) return nullptr;
    auto* const ring = new (memory) TraceRing;
    ring->next = rings.load(std::memory_order_relaxed);
    while (!rings.compare_exchange_weak(ring->next, ring)) {
    }
    return ring;
  }

  [[gnu::noinline]] static void enter_thread() {
    thread_state = ThreadState::is_silent;
    TraceRing* const ring = take_ring();
    if (ring == nullptr) return;
    thread_ring = ring;
    thread_state = ThreadState::records;
    FlsSetValue(thread_end, ring);
  }

  static void NTAPI leave_thread(void* ring) {
    thread_state = ThreadState::is_silent;
    static_cast<TraceRing*>(ring)->is_free_ = true;
  }

  static void record(TraceRing& ring, const TracedImport* import, const std::uint64_t* arguments,
                     std::uint64_t caller) {
    const std::uint64_t number = ring.recorded_.load(std::memory_order_relaxed);
    TraceRing::Slot& slot = ring.slots_[number % TraceRing::capacity];
    slot.holds.store(0, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    TracedCall& call = slot.call;
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    call.time = now.QuadPart;
    call.thread = current_thread_id();
    call.import = import;
    call.caller = caller;
    std::copy_n(arguments, TracedCall::argument_count, call.arguments.begin());
    copy_texts(call);
    slot.holds.store(number + 1, std::memory_order_release);
    ring.recorded_.store(number + 1, std::memory_order_release);
  }
};

bool TraceRing::copy(std::uint64_t number, TracedCall& call) const {
  const Slot& slot = slots_[number % capacity];
  if (slot.holds.load(std::memory_order_acquire) != number + 1) return false;
  std::memcpy(&call, &slot.call, sizeof call);
  std::atomic_thread_fence(std::memory_order_acquire);
  return slot.holds.load(std::memory_order_relaxed) == number + 1;
}

TraceRing* first_trace_ring() { return rings.load(std::memory_order_acquire); }

void start_recording() {
  thread_end = FlsAlloc(&TraceRecorder::leave_thread);
  AddVectoredExceptionHandler(1, end_checked_read);
}

extern "C" const void* record_import_call(const TracedImport* import, const std::uint64_t* arguments,
                                          std::uint64_t caller) {
  if (thread_state == ThreadState::unknown) TraceRecorder::enter_thread();
  if (thread_state == ThreadState::records) TraceRecorder::record(*thread_ring, import, arguments, caller);
  return import->implementation;
}

}  // namespace vlm
