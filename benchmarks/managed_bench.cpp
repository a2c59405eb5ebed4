// What an internal call costs: game code that calls Windows functions through the real library.
//
//   managed_bench IMAGE        compares the smallest with a forwarder, which crosses the other way
//   managed_bench IMAGE cases  measures the cases of managed_guest.cpp; the peer is ffi_cases.cpp, natively
#include "case_report.h"
#include "report.h"
#include "support/game.h"

using namespace vlm::bench;
using namespace vlm::test;

namespace {

struct Vector3 {
  float x, y, z;
};

int add(int a, int b) { return a + b; }
Vector3 move(Vector3 place) { return {place.x + 1, place.y, place.z}; }
double mix(void*, int count, float weight, double time, Vector3 place, long long key, double scale, int first, Vector3*,
           float last) {
  return count + weight + time + place.y + static_cast<double>(key) + scale + first + last;
}

}  // namespace

int main(int count, char** arguments) {
  load_library(arguments[1]);
  start_game();
  const auto add_internal_call = library_function<void (*)(const char*, void*)>("il2cpp_add_internal_call");
  add_internal_call("Bench::Add", reinterpret_cast<void*>(&add));
  add_internal_call("Bench::Move", reinterpret_cast<void*>(&move));
  add_internal_call("Bench::Mix", reinterpret_cast<void*>(&mix));
  const auto run_case = game_function<void, std::int64_t, std::int64_t>(game_symbol("run_case"));

  if (count > 2) {
    report_cases(static_cast<const char* const*>(game_symbol("case_names")), run_case);
  } else {
    const auto forwarder =
        library_function<std::int64_t (*)(std::int64_t, std::int64_t)>("il2cpp_class_get_type_token");
    constexpr int calls = 1000;
    const auto peer = [&] {
      for (int i = 0; i < calls; ++i) forwarder(i, 2);
    };
    const auto time = compare(301, 20, peer, [&] { run_case(0, calls); });
    print_row("internal call, (int, int) to int, and a forwarder", "ns", time.peer / calls, time.ours / calls,
              "peer + 12");
  }
  leave(0);
}
