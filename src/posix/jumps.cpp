// Non-local jumps: the functions are entries of abi/entries.S.
#include "abi/entries.h"
#include "posix/shims.h"

namespace vlm {

const ShimEntry jump_rows[] = {
    {"__setjmp", shim(setjmp_entry)},
    {"_setjmp", shim(setjmp_entry)},
    {"__longjmp", shim(longjmp_entry)},
    {"_longjmp", shim(longjmp_entry)},
};
constinit const ShimRows jump_shims = jump_rows;

}  // namespace vlm
