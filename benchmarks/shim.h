// A shim as game code has it: called with its convention through a pointer, as an import slot is.
#pragma once

#include "binding/shim_table.h"
#include "support/sysv.h"

namespace vlm::bench {

template <class Function>
class Shim;
template <class Result, class... A>
class Shim<Result(A...)> {
 public:
  explicit Shim(const char* symbol)
      : function_(reinterpret_cast<Function>(const_cast<void*>(lookup_shim("libSystem.B.dylib", symbol)))) {}
  Result operator()(A... arguments) const { return function_(arguments...); }

 private:
  using Function = SYSV Result (*)(A...);
  Function volatile function_;  // no call is foreseen or left out
};

}  // namespace vlm::bench
