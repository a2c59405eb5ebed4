#include "binding/shim_table.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "abi/entries.h"
#include "abi/stubs.h"
#include "binding/data_names.h"
#include "diag/log.h"
#include "support/text.h"

namespace vlm {
namespace {

constexpr std::size_t max_rows = 4096;
constexpr std::size_t zero_block_size = 512;
constexpr std::size_t trap_arena_size = 0x10000;
constexpr std::size_t trap_stub_slot = 32;

// Filled by static start-up and sorted by the first lookup, both on one thread and before game code runs;
// read-only from then on.
struct {
  ShimEntry rows[max_rows];
  std::uint64_t count;
  bool sorted;
} shim_table;

// Traps are made while an image is bound, on the start-up thread; all are in a list.
struct Trap {
  TrapRecord record;
  const Trap* next;
};
const Trap* traps = nullptr;
std::byte* trap_arena = nullptr;
std::size_t trap_arena_used = 0;

/// In front of a zeroed object; all in a list, made like the traps.
struct MissingObject {
  const MissingObject* next;
  const char* symbol;
  alignas(16) std::byte block[zero_block_size];
};
const MissingObject* missing_objects = nullptr;

// Read once from the environment; reading it twice on a race gives the same answer.
enum class TrapContinue { unread, off, on };
std::atomic<TrapContinue> trap_continue{TrapContinue::unread};

void sort_rows() {
  const auto rows = std::span(shim_table.rows, shim_table.count);
  std::ranges::sort(rows, [](const ShimEntry& a, const ShimEntry& b) { return std::strcmp(a.name, b.name) < 0; });
  for (std::size_t i = 1; i < rows.size(); ++i) {
    if (std::strcmp(rows[i - 1].name, rows[i].name) == 0) log_message(0, "duplicate shim symbol %s", rows[i].name);
  }
  shim_table.sorted = true;
}

ShimEntry* find_row(const char* name) {
  if (!shim_table.sorted) sort_rows();
  const auto rows = std::span(shim_table.rows, shim_table.count);
  const auto found = std::ranges::lower_bound(
      rows, name, [](const char* a, const char* b) { return std::strcmp(a, b) < 0; }, &ShimEntry::name);
  return found != rows.end() && std::strcmp(found->name, name) == 0 ? &*found : nullptr;
}

[[noreturn]] void out_of_memory(const char* name) { fatal_error("out of memory while binding %s", name); }

char* copy_text(const char* text, const char* name) {
  char* copy = strdup(text);
  if (copy == nullptr) out_of_memory(name);
  return copy;
}

const void* make_trap(const char* library, const char* name) {
  auto* trap = static_cast<Trap*>(std::malloc(sizeof(Trap)));
  if (trap == nullptr) out_of_memory(name);
  *trap = {{copy_text(library, name), copy_text(name, name), 0}, traps};
  traps = trap;
  if (trap_arena == nullptr || trap_arena_used + trap_stub_slot > trap_arena_size) {
    trap_arena = static_cast<std::byte*>(allocate_stub_memory(trap_arena_size));
    trap_arena_used = 0;
  }
  std::byte* stub = trap_arena + trap_arena_used;
  trap_arena_used += trap_stub_slot;
  write_record_stub(stub, &trap->record, reinterpret_cast<const void*>(&trap_entry));
  return stub;
}

/// Logs a line that says how many there are, then all names in a few long lines.
void log_names(const char* what, std::vector<std::string_view> names) {
  if (names.empty()) return;
  std::ranges::sort(names);
  names.erase(std::ranges::unique(names).begin(), names.end());
  log_message(0, "[bind] %s: %zu", what, names.size());
  constexpr std::size_t line_length = 160;
  std::string line;
  for (const std::string_view name : names) {
    if (!line.empty() && line.size() + name.size() > line_length) {
      log_message(0, "[bind] %s", line.c_str());
      line.clear();
    }
    line.append(" ").append(name);
  }
  log_message(0, "[bind] %s", line.c_str());
}

bool continues_after_trap() {
  TrapContinue mode = trap_continue.load(std::memory_order_relaxed);
  if (mode == TrapContinue::unread) {
    mode = read_environment(L"VLM_TRAP_CONTINUE").text.starts_with('1') ? TrapContinue::on : TrapContinue::off;
    trap_continue.store(mode, std::memory_order_relaxed);
  }
  return mode == TrapContinue::on;
}

}  // namespace

void register_shims(ShimRows rows) {
  for (const ShimEntry& row : rows) {
    if (shim_table.count == max_rows) fatal_error("symbol table full");
    shim_table.rows[shim_table.count++] = row;
  }
  shim_table.sorted = false;
}

const void* lookup_shim(const char* library, const char* name) {
  const ShimEntry* const row = find_row(name);
  return row != nullptr ? row->address : nullptr;
}

void replace_shim(const char* name, const void* address) {
  if (ShimEntry* const row = find_row(name)) row->address = address;
}

const void* make_missing_symbol(const char* library, const char* name) {
  if (!is_data_name(name)) return make_trap(library, name);
  auto* object = static_cast<MissingObject*>(std::calloc(1, sizeof(MissingObject)));
  if (object == nullptr) out_of_memory(name);
  object->symbol = copy_text(name, name);
  object->next = missing_objects;
  missing_objects = object;
  return object->block;
}

const char* missing_symbol_name(const void* address) {
  for (const MissingObject* object = missing_objects; object != nullptr; object = object->next) {
    if (object->block == address) return object->symbol;
  }
  return nullptr;
}

void log_missing_symbols() {
  std::vector<std::string_view> functions, objects;
  for (const Trap* trap = traps; trap != nullptr; trap = trap->next) {
    if (!is_lazy_binder(trap->record.symbol)) functions.push_back(trap->record.symbol);
  }
  for (const MissingObject* object = missing_objects; object != nullptr; object = object->next) {
    objects.push_back(object->symbol);
  }
  log_names("imports without an implementation, a call ends the game", std::move(functions));
  log_names("data imports without an implementation, they read as zero", std::move(objects));
}

extern "C" std::uint64_t trap_unimplemented(TrapRecord* record) {
  const std::int32_t earlier_calls = record->calls++;
  if (!continues_after_trap()) fatal_error("unimplemented import %s (%s) called", record->symbol, record->library);
  if (earlier_calls <= 2) {
    log_message(0, "[trap] unimplemented import %s (%s) called; returning 0", record->symbol, record->library);
  }
  return 0;
}

}  // namespace vlm
