// Where C++ code ends up that cannot go on, and destructors with nothing to destroy.
#include "cxx/shims.h"
#include "diag/log.h"
#include "support/sysv.h"

namespace vlm {
namespace {

SYSV void pure_virtual_() { fatal_error("pure virtual function called"); }
SYSV void terminate_() { fatal_error("std::terminate called"); }

/// Of std::mutex and std::condition_variable: the POSIX objects within them hold nothing to give back.
SYSV void nothing_to_destroy(void* object) {}

}  // namespace

const ShimEntry handler_rows[] = {
    {"___cxa_pure_virtual", shim(pure_virtual_)},
    {"__ZSt9terminatev", shim(terminate_)},
};
constinit const ShimRows handler_shims = handler_rows;

const ShimEntry cxx_lock_rows[] = {
    {"__ZNSt3__15mutexD1Ev", shim(nothing_to_destroy)},
    {"__ZNSt3__118condition_variableD1Ev", shim(nothing_to_destroy)},
};
constinit const ShimRows cxx_lock_shims = cxx_lock_rows;

}  // namespace vlm
