// What a forwarder costs: an export with four integer arguments of the real library, against the least bridge that
// keeps the same registers, both calling the same function of a guest image.
#include <windows.h>

#include "report.h"
#include "vlm.h"

extern "C" {
void* bridge_peer(const void*, const char*, const char*, const char*);
extern void* bridge_peer_target;
}

namespace {
int ticks = 0;  // of the mod
}

int main(int argc, char** argv) {
  SetEnvironmentVariableA("VLM_GAMEASSEMBLY", argv[1]);
  const HMODULE library = LoadLibraryA("GameAssembly.dll");
  if (library == nullptr) return 1;
  const auto function = [&](const char* name) { return reinterpret_cast<void*>(GetProcAddress(library, name)); };
  const auto ours = reinterpret_cast<decltype(&bridge_peer)>(function("il2cpp_exception_from_name_msg"));
  ours(argv, "", "", "");  // starts the game
  bridge_peer_target =
      reinterpret_cast<decltype(&vlm_native_symbol)>(function("vlm_native_symbol"))("il2cpp_exception_from_name_msg");
  if (bridge_peer_target == nullptr) return 1;
  const auto time = vlm::bench::compare(
      301, 20'000, [&] { bridge_peer(argv, "space", "name", "message"); }, [&] { ours(argv, "space", "name", "message"); });
  vlm::bench::print_row("forwarder, four integer arguments", "ns", time.peer, time.ours, "1.15");

  // The same shape of call, into a function that does as little, with a mod that is called every 15 ms.
  reinterpret_cast<int (*)(const char*)>(function("il2cpp_init"))("bench");
  reinterpret_cast<decltype(&vlm_mod_register)>(function("vlm_mod_register"))([](int32_t) { ++ticks; });
  const auto invoke = reinterpret_cast<void* (*)(const void*, void*, void**, void**)>(function("il2cpp_runtime_invoke"));
  const auto with_mod = vlm::bench::compare(
      301, 20'000, [&] { ours(argv, "space", "name", "message"); }, [&] { invoke(argv, nullptr, nullptr, nullptr); });
  if (ticks == 0) return 1;
  vlm::bench::print_row("runtime_invoke with a mod, against a forwarder (goal: 5 ns more)", "ns", with_mod.peer,
                        with_mod.ours, "-");
}
