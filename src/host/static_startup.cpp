// Everything that needs no game code, done while Windows loads the library (under its loader lock).
#include <windows.h>

#include "binding/catalogue.h"
#include "diag/crash_report.h"
#include "diag/log.h"
#include "host/title_keeper.h"
#include "input/devices.h"
#include "objc/object.h"
#include "objc/string_constants.h"
#include "plugins/modules.h"
#include "posix/descriptors.h"
#include "posix/streams.h"
#include "posix/time.h"
#include "support/procedures.h"
#include "tls/game_tls.h"

namespace vlm {
namespace {

void log_versions() {
  RTL_OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  static_assert(sizeof version == 276);
  using RtlGetVersion = LONG WINAPI(RTL_OSVERSIONINFOW*);
  auto* const rtl_get_version = find_procedure<RtlGetVersion>(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion");
  if (rtl_get_version != nullptr) rtl_get_version(&version);
  log_message(0, "GameAssembly.dll loaded on Windows %lu.%lu.%lu", version.dwMajorVersion, version.dwMinorVersion,
              version.dwBuildNumber);
  log_message(0, "version %s of the library", VLM_VERSION);
}

/// Ten steps in this order.
void start_statically() {
  log_versions();                 // 1. the first line of every log
  install_crash_handler();        //
  game_tls_init();                // 2. thread storage for game threads
  game_tls_announce();            //
  build_objc_classes();           // 3. what class symbols stand for
  create_string_constants();      //    what constants of Foundation hold
  set_up_standard_streams();      // 4. what the C library's data symbols show
  set_up_time_base();             //
  register_first_shim_block();    // 5. the C library
  set_up_standard_descriptors();  // 6. what descriptors 0, 1 and 2 stand for
  register_other_shim_blocks();   // 7. all other families
  start_controller_input();       // 8. from here on a thread looks for controllers
  register_plugin_modules();      // 9. what dlopen knows
  start_title_keeper();           // 10.
}

[[gnu::constructor]] void run_at_load() { start_statically(); }

}  // namespace
}  // namespace vlm
