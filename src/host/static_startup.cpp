// Everything that needs no game code, done while Windows loads the library (under its loader lock).
#include <windows.h>

#include "diag/log.h"
#include "host/shim_catalogue.h"
#include "host/title_keeper.h"
#include "input/devices.h"
#include "objc/object.h"
#include "objc/string_constants.h"
#include "plugins/modules.h"
#include "posix/descriptors.h"
#include "posix/streams.h"
#include "posix/time.h"
#include "reports/crash_report.h"
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

/// In this order: the log's first line comes first, and whatever goes wrong after it is reported.
void start_statically() {
  log_versions();
  install_crash_handler();
  game_tls_init();
  game_tls_announce();
  build_objc_classes();
  create_string_constants();
  set_up_standard_streams();
  set_up_time_base();
  register_shim_families();
  set_up_standard_descriptors();
  start_controller_input();
  register_plugin_modules();
  start_title_keeper();
}

[[gnu::constructor]] void run_at_load() { start_statically(); }

}  // namespace
}  // namespace vlm
