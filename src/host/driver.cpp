#include "host/driver.h"

#include <windows.h>

#include <string>

#include "binding/shim_table.h"
#include "diag/log.h"
#include "host/forward_table.h"
#include "host/import_trace.h"
#include "host/paths.h"
#include "host/reflection.h"
#include "macho/load.h"
#include "objc/categories.h"
#include "support/text.h"
#include "tls/gs_patch.h"
#include "tls/thread_record.h"

namespace vlm {

constinit std::atomic<const MachImage*> game_image{nullptr};
constinit std::atomic<bool> start_completed{false};

namespace {

constinit INIT_ONCE start_gate = INIT_ONCE_STATIC_INIT;
constinit std::atomic<DWORD> driver_thread{0};  // 0 until the driver runs

/// Ends this process with a message when the game runs already. The mutex is kept until the process ends.
void guard_single_instance() {
  const HANDLE mutex = CreateMutexW(nullptr, TRUE, L"Local\\VelmoraPC_SingleInstance");
  if (mutex != nullptr && GetLastError() == ERROR_ALREADY_EXISTS) {
    MessageBoxW(nullptr, L"Velmora is already running.", L"Velmora", MB_ICONINFORMATION);
    ExitProcess(0);
  }
}

/// Called when the game's image is bound and its text still writable.
void finish_game_image(const MachImage& image) {
  log_missing_symbols();
  const std::uint32_t patched = gs_patch_apply(image);
  log_message(0, "[macho] %llu bytes at %p, %u accesses to thread storage redirected",
              static_cast<unsigned long long>(image.extent()), reinterpret_cast<void*>(image.base), patched);
}

BOOL CALLBACK startup_driver(PINIT_ONCE, PVOID, PVOID*) {
  driver_thread = GetCurrentThreadId();
  const std::string image_path = resolve_start_paths();
  guard_single_instance();

  log_message(0, "adopting existing threads");
  adopt_existing_threads();

  start_import_trace();
  log_message(0, "loading %s", image_path.c_str());
  game_image = macho_load(image_path.c_str(), {lookup_shim, make_missing_symbol, finish_game_image});
  if (game_image == nullptr) {
    fatal_error("could not load %s (copy GameAssembly.dylib from the Mac app's Contents/Frameworks)",
                image_path.c_str());
  }
  resolve_forward_table();
  resolve_reflection_api(*game_image);
  attach_objc_categories(*game_image);

  log_message(0, "running GameAssembly.dylib initializers");
  macho_run_initializers(*game_image);
  log_message(0, "GameAssembly.dylib ready");
  open_forward_table();
  start_completed.store(true, std::memory_order_release);
  return TRUE;
}

}  // namespace

void pass_start_gate() {
  if (driver_thread == GetCurrentThreadId()) {
    // The gate would wait for itself.
    fatal_error(
        "an il2cpp_* export was called from an initializer of GameAssembly.dylib, before start-up was complete");
  }
  InitOnceExecuteOnce(&start_gate, startup_driver, nullptr, nullptr);
}

}  // namespace vlm
