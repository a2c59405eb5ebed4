// The TLS callback: Windows calls it on every thread before the thread's start routine and when the thread ends, and on
// the loading thread before any constructor of the library. Linked directly into the library, so that no archive search
// can lose it.
#include <windows.h>

#include <cerrno>

#include "tls/game_tls.h"
#include "tls/thread_record.h"

namespace vlm {
namespace {

void attach() {
  game_tls_init();
  thread_stack_commit(current_teb());
  register_current_thread();  // null when memory is out: the thread then lives without storage until it needs it
  // The C runtime makes its own record of the thread on first use, out of the heap: not while others stand still.
  _errno();
}

void NTAPI on_attach_or_detach(void*, DWORD reason, void*) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
    case DLL_THREAD_ATTACH: attach(); break;
    case DLL_THREAD_DETACH: retire_current_thread(); break;
    default: break;
  }
}

}  // namespace

/// The linker sorts .CRT$XL* by name into the array that the TLS directory points to; the C runtime owns the ends.
extern "C" __attribute__((section(".CRT$XLC"), used)) const PIMAGE_TLS_CALLBACK attach_callback = on_attach_or_detach;

/// The TLS directory of the C runtime's start-up code. Naming it here brings it into the library.
extern "C" const IMAGE_TLS_DIRECTORY64 _tls_used;
__attribute__((used)) static const IMAGE_TLS_DIRECTORY64* const tls_directory = &_tls_used;

}  // namespace vlm
