// A mod in small: a Windows DLL beside the player.
//
//   loaded      registers its entry
//   first tick  puts itself before a managed method (Game.Describe) and a function of the game (scoreboard_report)
//   every tick  counts
//
// Both hooks do their own work and then what was there before, so that the game plays on as if there was no mod. They
// stay for good: other mods may have built on them, and game code may be inside them at any time.
#include "mod.h"

#include <windows.h>

#include <cstdio>
#include <cstring>

#include "vlm.h"

// The exports of GameAssembly.dll that the mod uses, beside those in vlm.h.
extern "C" {
void* il2cpp_domain_get();
const void* il2cpp_domain_assembly_open(void* domain, const char* name);
const void* il2cpp_assembly_get_image(const void* assembly);
void* il2cpp_class_from_name(const void* image, const char* name_space, const char* name);
void* il2cpp_class_get_method_from_name(void* klass, const char* name, int parameter_count);

/// Written on the game's main thread only.
__declspec(dllexport) SampleModCounts sample_mod_counts;
}

namespace {

void print_line(const char* line) {
  std::printf("mod: %s\n", line);
  std::fflush(stdout);
}

// A managed method: string Game.Describe()

void* (*original_describe)(void* self, const void* method);

void* describe(void* self, const void* method) {
  ++sample_mod_counts.descriptions;
  return original_describe(self, method);
}

void hook_describe() {
  const void* const assembly = il2cpp_domain_assembly_open(il2cpp_domain_get(), "Assembly-CSharp");
  void* const game_class =
      assembly == nullptr ? nullptr : il2cpp_class_from_name(il2cpp_assembly_get_image(assembly), "", "Game");
  void* const method = game_class == nullptr ? nullptr : il2cpp_class_get_method_from_name(game_class, "Describe", 0);
  if (method == nullptr) return print_line("no hook: there is no method Game.Describe()");
  void*& code = *static_cast<void**>(method);  // a MethodInfo begins with the address of the method's code
  void* const original = vlm_wrap_sysv_function(code, 2);
  void* const replacement = vlm_wrap_method_callback(method, reinterpret_cast<void*>(describe));
  if (original == nullptr || replacement == nullptr) return print_line("no hook: Game.Describe() cannot be wrapped");
  original_describe = reinterpret_cast<decltype(original_describe)>(original);
  code = replacement;
}

// A function of the game: int32_t scoreboard_report(int32_t score)

std::int32_t (*original_report)(std::int32_t score);

std::int32_t report(std::int32_t score) {
  ++sample_mod_counts.scores;
  return original_report(score);
}

/// What the function begins with: whole instructions that work at any address, and room for a jump.
constexpr std::uint8_t report_start[] = {
    0x55,              // push rbp
    0x48, 0x89, 0xE5,  // mov rbp, rsp
    0x89, 0xFA,        // mov edx, edi
};
constexpr int start_size = sizeof report_start, jump_size = 5;

/// jmp to `target`, at most 2 GiB away.
void write_jump(std::uint8_t* place, const std::uint8_t* target) {
  const auto distance = static_cast<std::int32_t>(target - (place + jump_size));
  place[0] = 0xE9;
  std::memcpy(place + 1, &distance, sizeof distance);
}

// The function jumps to the trampoline, and that to report(), which may be anywhere. Behind it the trampoline has the
// function's first instructions and the way back: together the original.
//
//   scoreboard_report: jmp trampoline      trampoline:      jmp [the next 8 bytes]; the address of report()
//                      nop                 trampoline + 16: push rbp; mov rbp, rsp; mov edx, edi
//                      ...    <------------                 jmp scoreboard_report + 6
void patch_scoreboard_report() {
  auto* const function = static_cast<std::uint8_t*>(vlm_native_symbol("scoreboard_report"));
  if (function == nullptr || std::memcmp(function, report_start, start_size) != 0) {
    return print_line("no patch: scoreboard_report is missing, patched already or of another version");
  }
  auto* const trampoline = static_cast<std::uint8_t*>(vlm_allocate_trampoline(function));
  DWORD protection;
  if (trampoline == nullptr || !VirtualProtect(function, start_size, PAGE_EXECUTE_READWRITE, &protection)) {
    return print_line("no patch: no memory for it");
  }
  constexpr std::uint8_t far_jump[] = {0xFF, 0x25, 0, 0, 0, 0};
  void* const replacement = vlm_wrap_callback(reinterpret_cast<void*>(report));
  std::memcpy(trampoline, far_jump, sizeof far_jump);
  std::memcpy(trampoline + sizeof far_jump, &replacement, sizeof replacement);
  std::uint8_t* const original = trampoline + 16;
  std::memcpy(original, report_start, start_size);
  write_jump(original + start_size, function + start_size);
  original_report = reinterpret_cast<decltype(original_report)>(vlm_wrap_sysv_function(original, 1));

  // Only the main thread calls this function, and that is here: no thread is inside the bytes that change.
  write_jump(function, trampoline);
  std::memset(function + jump_size, 0x90, start_size - jump_size);
  VirtualProtect(function, start_size, protection, &protection);
  FlushInstructionCache(GetCurrentProcess(), function, start_size);
}

/// The entry: on the game's main thread, at most every 15 ms.
void tick(std::int32_t called_before) {
  ++sample_mod_counts.ticks;
  if (called_before) return;
  hook_describe();
  patch_scoreboard_report();
  print_line("first tick");
}

}  // namespace

/// Registering takes no lock, so it may be done here; anything more waits for the first tick.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
  if (reason != DLL_PROCESS_ATTACH) return TRUE;
  return vlm_mod_abi_version() == 1 && vlm_mod_register(tick) == 1;
}
