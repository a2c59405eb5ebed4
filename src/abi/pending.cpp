// What the entries call in families that are not built yet. Each ends as a call of a missing import does: it reports
// which symbol was called, and returns zero when the library is told to go on. A body leaves this file when its
// family defines it.
#include "abi/entries.h"
#include "binding/shim_table.h"

namespace {

using namespace vlm;

/// Reports the call of a symbol; returns 0 if it returns. The record counts the calls of its own symbol.
#define MISSING(library, symbol)                            \
  ([] {                                                     \
    static constinit TrapRecord record{library, symbol, 0}; \
    return trap_unimplemented(&record);                     \
  }())

}  // namespace

extern "C" {

void dispatch_managed_call(IcallRecord*, const RegisterSaveArea*, const std::uint64_t*, ManagedResult* result) {
  MISSING("GameAssembly.dylib", "managed call");
  *result = {};
}

}  // extern "C"
