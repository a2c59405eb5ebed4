// The shim table: Mach-O symbol name -> Windows implementation, and what stands in for a name without one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vlm {

/// One row. `name` is spelled as in the Mach-O symbol table ("_malloc"). A function is called by game code with the
/// System V convention; data has the macOS layout.
struct ShimEntry {
  const char* name;
  const void* address;
};

/// A row's address from a System V function or an object. constexpr, so that rows are laid out by the compiler and
/// need no constructor: static start-up reads them, whatever order constructors run in.
template <class R, class... A>
constexpr const void* shim(R (*function)(A...) __attribute__((sysv_abi))) {
  return reinterpret_cast<const void*>(function);
}
constexpr const void* shim(const void* object) { return object; }
/// The same from a hand-written entry, whose convention is its own.
constexpr const void* shim(void (*entry)()) { return reinterpret_cast<const void*>(entry); }

/// The rows of one family, declared in its folder's shims.h.
using ShimRows = std::span<const ShimEntry>;

/// Appends rows; fatal "symbol table full" beyond 4096. Only during static start-up.
void register_shims(ShimRows rows);

/// The implementation of a symbol, or null. Names are global: the library label is not part of the search.
const void* lookup_shim(const char* library, const char* name);

/// Gives a symbol that has an implementation another one. Before the game's image is bound.
void replace_shim(const char* name, const void* address);

/// What an import without a row is bound to: a zeroed 512-byte object for data-like names, else a trap stub
/// that reports the first call. Never null.
const void* make_missing_symbol(const char* library, const char* name);

/// The symbol that make_missing_symbol() answered with the zeroed object at this address, or null.
const char* missing_symbol_name(const void* object);

/// Logs the names that make_missing_symbol() was asked for. The log then tells what a game lacks before it needs it.
void log_missing_symbols();

/// One import without an implementation; lives until the process ends.
struct TrapRecord {
  const char* library;  // malloc'ed
  const char* symbol;   // malloc'ed
  std::int32_t calls;   // unsynchronised: a lost increment is harmless
};

/// Reached from game code through a trap stub and trap_entry: ends the process, or returns 0 in continue mode.
extern "C" std::uint64_t trap_unimplemented(TrapRecord* record);

}  // namespace vlm
