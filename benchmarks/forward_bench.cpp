// What a forwarder costs: an export with four integer arguments of the real library, against the least bridge that
// keeps the same registers, both calling the same function of a guest image.
//
//   forward_bench IMAGE
#include "report.h"
#include "support/game.h"

using namespace vlm::bench;
using namespace vlm::test;

extern "C" {
void* bridge_peer(const void*, const char*, const char*, const char*);
extern void* bridge_peer_target;
}

namespace {
int ticks = 0;  // of the mod
}

int main(int, char** arguments) {
  load_library(arguments[1]);
  start_game();
  const auto ours = library_function<decltype(&bridge_peer)>("il2cpp_exception_from_name_msg");
  bridge_peer_target = game_symbol("il2cpp_exception_from_name_msg");
  const auto call_ours = [&] { ours(arguments, "space", "name", "message"); };
  const auto time = compare(301, 20'000, [&] { bridge_peer(arguments, "space", "name", "message"); }, call_ours);
  print_row("forwarder, four integer arguments", "ns", time.peer, time.ours, "1.15");

  // The same shape of call, into a function that does as little, with a mod that is called every 15 ms.
  library_function<decltype(&vlm_mod_register)>("vlm_mod_register")([](std::int32_t) { ++ticks; });
  const auto invoke = library_function<void* (*)(const void*, void*, void**, void**)>("il2cpp_runtime_invoke");
  const auto with_mod = compare(301, 20'000, call_ours, [&] { invoke(arguments, nullptr, nullptr, nullptr); });
  if (ticks == 0) return 1;
  print_row("runtime_invoke with a mod, against a forwarder (goal: 5 ns more)", "ns", with_mod.peer, with_mod.ours,
            "-");
  leave(0);
}
