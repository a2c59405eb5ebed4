#include "tls/game_tls.h"

#include "diag/log.h"
#include "support/pages.h"

namespace vlm {

extern "C" constinit std::uint64_t game_storage_offset = 0;
constinit std::uint32_t game_tls_index = no_tls_index;
constinit std::uint32_t game_tls_expansion = 0;

namespace {

// A thread's stack reservation, from its lowest address: a margin, the guard page, then what is committed.
constexpr std::uint64_t smallest_stack = 0x10000;
constexpr std::uint64_t guard_page = 0x3000;
constexpr std::uint64_t committed_part = guard_page + page_size;

/// The word of the slot in a thread's environment block, or null while the thread has no expansion array.
volatile std::uint64_t* slot_of(std::uint64_t teb) {
  if (game_tls_expansion != 0) {
    teb = teb_field<std::uint64_t>(teb, TEB_TLS_EXPANSION_SLOTS);
    if (teb == 0) return nullptr;
  }
  return reinterpret_cast<volatile std::uint64_t*>(teb + game_storage_offset);
}

}  // namespace

std::uint64_t current_teb() { return reinterpret_cast<std::uint64_t>(NtCurrentTeb()); }

void game_tls_init() {
  if (game_tls_index != no_tls_index) return;
  const DWORD index = TlsAlloc();
  if (index == TLS_OUT_OF_INDEXES) fatal_error("no free TLS index for game thread storage");
  game_tls_index = index;
  const GameTlsPlace place = game_tls_place(index);
  game_storage_offset = place.offset;
  game_tls_expansion = place.expansion;
}

void game_tls_announce() {
  if (game_tls_expansion == 0) return;
  log_message(0, "using TLS expansion slot %lu", static_cast<unsigned long>(game_tls_index));
}

void game_tls_set(ThreadRecord* record) { TlsSetValue(game_tls_index, record != nullptr ? record->storage : nullptr); }

ThreadRecord* game_tls_get() {
  if (game_tls_index == no_tls_index) return nullptr;
  auto* storage = static_cast<std::byte*>(TlsGetValue(game_tls_index));
  if (storage == nullptr) return nullptr;
  return reinterpret_cast<ThreadRecord*>(storage - offsetof(ThreadRecord, storage));
}

std::uint64_t game_tls_read_teb(std::uint64_t teb) {
  const volatile std::uint64_t* slot = slot_of(teb);
  return slot != nullptr ? *slot : 0;
}

ExpansionArray make_expansion_array() {
  if (game_tls_expansion == 0) return nullptr;
  // Windows frees it from this heap when the thread ends.
  return ExpansionArray(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, teb_tls_expansion_slot_count * sizeof(void*)));
}

bool game_tls_prepare_teb(std::uint64_t teb, ExpansionArray& spare) {
  if (slot_of(teb) != nullptr) return true;
  if (spare == nullptr) return false;
  // The thread may be making one at this moment; the first that is installed stays.
  auto* const field = reinterpret_cast<void* volatile*>(teb + TEB_TLS_EXPANSION_SLOTS);
  if (InterlockedCompareExchangePointer(field, spare.get(), nullptr) == nullptr) spare.release();
  return true;
}

void game_tls_write_teb(std::uint64_t teb, ThreadRecord* record) {
  *slot_of(teb) = reinterpret_cast<std::uint64_t>(record->storage);
}

void thread_stack_commit(std::uint64_t teb) {
  const auto base = teb_field<std::uint64_t>(teb, TEB_STACK_BASE);
  const auto reservation = teb_field<std::uint64_t>(teb, TEB_DEALLOCATION_STACK);
  if (base == 0 || reservation == 0 || base <= reservation + smallest_stack) return;

  const auto low = reservation + committed_part;
  void* const start = reinterpret_cast<void*>(low);
  if (VirtualAlloc(start, base - low, MEM_COMMIT, PAGE_READWRITE) == nullptr) return;
  DWORD previous;
  VirtualProtect(start, base - low, PAGE_READWRITE, &previous);  // the old guard page lies in the range
  VirtualAlloc(reinterpret_cast<void*>(reservation + guard_page), page_size, MEM_COMMIT, PAGE_READWRITE | PAGE_GUARD);
  teb_field<std::uint64_t>(teb, TEB_STACK_LIMIT) = low;
}

}  // namespace vlm
