// What an internal call costs: game code that calls Windows functions through the real library.
//
//   managed_bench IMAGE        compares the smallest with a forwarder, which crosses the other way
//   managed_bench IMAGE cases  measures the cases of managed_guest.cpp; the peer is ffi_cases.cpp, natively
#include <windows.h>

#include "case_report.h"
#include "report.h"
#include "vlm.h"

namespace {

struct Vector3 {
  float x, y, z;
};

int add(int a, int b) { return a + b; }
Vector3 move(Vector3 place) { return {place.x + 1, place.y, place.z}; }
double mix(void*, int count, float weight, double time, Vector3 place, long long key, double scale, int first,
           Vector3*, float last) {
  return count + weight + time + place.y + static_cast<double>(key) + scale + first + last;
}

}  // namespace

int main(int argc, char** argv) {
  SetEnvironmentVariableA("VLM_GAMEASSEMBLY", argv[1]);
  const HMODULE library = LoadLibraryA("GameAssembly.dll");
  if (library == nullptr) return 1;
  const auto function = [&](const char* name) { return reinterpret_cast<void*>(GetProcAddress(library, name)); };
  reinterpret_cast<int (*)(const char*)>(function("il2cpp_init"))("bench");
  const auto native_symbol = reinterpret_cast<decltype(&vlm_native_symbol)>(function("vlm_native_symbol"));
  const auto wrap = reinterpret_cast<decltype(&vlm_wrap_sysv_function)>(function("vlm_wrap_sysv_function"));
  const auto add_internal_call = reinterpret_cast<void (*)(const char*, void*)>(function("il2cpp_add_internal_call"));
  add_internal_call("Bench::Add", reinterpret_cast<void*>(&add));
  add_internal_call("Bench::Move", reinterpret_cast<void*>(&move));
  add_internal_call("Bench::Mix", reinterpret_cast<void*>(&mix));
  const auto run_case = reinterpret_cast<void (*)(std::int64_t, std::int64_t)>(wrap(native_symbol("run_case"), 2));

  if (argc > 2) {
    vlm::bench::report_cases(static_cast<const char* const*>(native_symbol("case_names")), run_case,
                             vlm::bench::now_ns);
  } else {
    const auto forwarder = reinterpret_cast<std::int64_t (*)(std::int64_t, std::int64_t)>(
        function("il2cpp_class_get_type_token"));
    constexpr int calls = 1000;
    const auto time = vlm::bench::compare(
        301, 20, [&] { for (int i = 0; i < calls; ++i) forwarder(i, 2); }, [&] { run_case(0, calls); });
    vlm::bench::print_row("internal call, (int, int) to int, and a forwarder", "ns", time.peer / calls,
                          time.ours / calls, "peer + 12");
  }
  std::fflush(stdout);
  TerminateProcess(GetCurrentProcess(), 0);
}
