// Measures the cases of an image as game code, in the real library. The peer, made of native_peer.cpp and the same
// cases, is a native program: ./bench runs the two in turn and puts their lines together.
#include <windows.h>

#include "report.h"
#include "case_report.h"
#include "vlm.h"

int main(int argc, char** argv) {
  SetEnvironmentVariableA("VLM_GAMEASSEMBLY", argv[1]);
  const HMODULE library = LoadLibraryA("GameAssembly.dll");
  if (library == nullptr) return 1;
  const auto function = [&](const char* name) { return reinterpret_cast<void*>(GetProcAddress(library, name)); };
  reinterpret_cast<int (*)(const char*)>(function("il2cpp_init"))("bench");
  const auto native_symbol = reinterpret_cast<decltype(&vlm_native_symbol)>(function("vlm_native_symbol"));
  const auto wrap = reinterpret_cast<decltype(&vlm_wrap_sysv_function)>(function("vlm_wrap_sysv_function"));
  vlm::bench::report_cases(
      static_cast<const char* const*>(native_symbol("case_names")),
      reinterpret_cast<void (*)(std::int64_t, std::int64_t)>(wrap(native_symbol("run_case"), 2)),
      vlm::bench::now_ns);
  TerminateProcess(GetCurrentProcess(), 0);
}
