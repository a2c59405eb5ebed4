#include "host/forward_table.h"

#include <cstdint>
#include <cstring>

#include "diag/log.h"
#include "host/driver.h"
#include "macho/queries.h"

namespace vlm {
namespace {

/// Symbol names in slot order.
constexpr const char* symbol_names[] = {
#define IL2CPP_FORWARD(result, name, ...) "_" #name,
#define IL2CPP_WRAP(positions, result, name, ...) "_" #name,
#define IL2CPP_LOCAL(result, name, ...) "_" #name,
#include "host/il2cpp_exports.def"
#undef IL2CPP_FORWARD
#undef IL2CPP_WRAP
#undef IL2CPP_LOCAL
};
static_assert(std::size(symbol_names) == export_count);

}  // namespace

constinit ForwardTable forward_table{};
constinit ForwardTable open_table{};

void resolve_forward_table() {
  const MachImage& image = *game_image;
  std::uint64_t addresses[export_count];
  for (std::size_t i = 0; i < export_count; ++i) {
    addresses[i] = macho_find_export(image, symbol_names[i]);
    if (addresses[i] == 0) log_message(0, "[api] GameAssembly.dylib does not export %s", symbol_names[i]);
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
  if (function == nullptr) missing_export(symbol_names[slot] + 1);
  return function;
}

void missing_export(const char* name) {
  fatal_error("%s was called, but GameAssembly.dylib does not export _%s (is it the right build of the game?)", name,
              name);
}

}  // namespace vlm
