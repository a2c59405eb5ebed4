#include "host/forward_table.h"

#include <cstdint>
#include <cstring>
#include <iterator>

#include "diag/log.h"
#include "host/driver.h"
#include "host/game_symbols.h"
#include "macho/queries.h"

namespace vlm {

static_assert(std::size(export_symbols) == export_count);

constinit ForwardTable forward_table{};
constinit ForwardTable open_table{};

void resolve_forward_table() {
  const MachImage& image = *game_image;
  std::uint64_t addresses[export_count];
  for (std::size_t i = 0; i < export_count; ++i) {
    addresses[i] = macho_find_export(image, export_symbols[i]);
    if (addresses[i] == 0) log_message(0, "[api] GameAssembly.dylib does not export %s", export_symbols[i]);
  }
  std::memcpy(&forward_table, addresses, sizeof forward_table);
}

void open_forward_table() {
  void* functions[export_count];
  std::memcpy(functions, &forward_table, sizeof functions);
  auto* const slots = reinterpret_cast<void**>(&open_table);
  for (std::size_t i = 0; i < export_count; ++i) __atomic_store_n(&slots[i], functions[i], __ATOMIC_RELEASE);
}

void* pass_gate_to(std::size_t slot) {
  ensure_started();
  void* const function = reinterpret_cast<void* const*>(&open_table)[slot];
  if (function == nullptr) missing_export(export_symbols[slot] + 1);
  return function;
}

void missing_export(const char* name) {
  fatal_error("%s was called, but GameAssembly.dylib does not export _%s (is it the right build of the game?)", name,
              name);
}

}  // namespace vlm
