#include "host/mods.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <utility>

#include "cxx/unwinder.h"
#include "host/forward_table.h"
#include "tls/game_tls.h"
#include "vlm.h"

namespace vlm {
namespace {

constexpr ULONGLONG mod_interval_ms = 15;

constinit std::atomic<vlm_mod_entry> mod_entry{nullptr};  // set at most once, by compare-and-swap
constinit std::atomic<DWORD> main_thread{0};              // 0 until il2cpp_init succeeded; no thread has id 0

// Touched on the main thread only.
struct {
  std::uint64_t frame = 0;    // that the mod runs in: its own managed invocations do not call it again
  Il2CppGCHandle handle = 0;  // keeps that frame's result alive
  bool fired = false;         // the mod has been called
  ULONGLONG last_tick = 0;
} hook;

/// A frame that a game exception, or a jump, has left does not come back to say so. It is gone when an exception went
/// on above it, or when the stack does not reach it any more.
bool mod_runs(std::uint64_t frame) { return frame < hook.frame && highest_landing < hook.frame; }

void free_handle() {
  if (hook.handle != 0) GAME(il2cpp_gchandle_free)(std::exchange(hook.handle, 0));
}

}  // namespace

constinit std::atomic<bool> scene_seen{false};

void mark_main_thread(int init_result) {
  if (init_result != 0) main_thread = current_thread_id();
}

[[gnu::noinline]] Il2CppObject* scene_hook(const char* method_name, Il2CppObject* result) {
  if (main_thread.load(std::memory_order_relaxed) != current_thread_id()) return result;
  const auto frame = reinterpret_cast<std::uint64_t>(__builtin_frame_address(0));
  if (mod_runs(frame)) return result;
  if (method_name != nullptr && std::strcmp(method_name, "Internal_ActiveSceneChanged") == 0) scene_seen = true;
  const vlm_mod_entry entry = mod_entry.load(std::memory_order_acquire);
  if (entry == nullptr || awaits_scene()) return result;
  const ULONGLONG now = GetTickCount64();
  if (hook.fired && now - hook.last_tick < mod_interval_ms) return result;

  hook.frame = frame;
  highest_landing = 0;
  hook.last_tick = now;
  free_handle();  // of a call that was left
  // The mod may make the collector run; only a handle keeps the result alive until the player has it.
  if (result != nullptr) hook.handle = GAME(il2cpp_gchandle_new)(result, false);
  const std::int32_t argument = hook.fired ? 1 : 0;
  hook.fired = true;
  entry(argument);
  if (hook.handle != 0) result = GAME(il2cpp_gchandle_get_target)(hook.handle);
  free_handle();
  hook.frame = 0;
  return result;
}

}  // namespace vlm

extern "C" VLM_API uint32_t vlm_mod_abi_version(void) { return 1; }

extern "C" VLM_API int32_t vlm_mod_register(vlm_mod_entry entry) {
  if (entry == nullptr) return 0;
  vlm_mod_entry registered = nullptr;
  return vlm::mod_entry.compare_exchange_strong(registered, entry) || registered == entry;
}
