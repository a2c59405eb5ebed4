#include "engine.h"

#include <iterator>

#include "library.h"
#include "managed.h"
#include "report.h"
#include "window.h"

std::int32_t current_frame;
static FrameRecord record;

FrameRecord take_frame_record() {
  const FrameRecord taken = record;
  record = {};
  return taken;
}

static std::int32_t get_frame_count() { return current_frame; }

static void log(Il2CppString* message) {
  ++record.lines;
  print_line(("engine: Debug.Log: " + utf8_of(message)).c_str());
}

static void draw_box(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height, std::int32_t color,
                     Il2CppString* label) {
  ++record.boxes;
  show_box({x, y, width, height, static_cast<std::uint32_t>(color), utf16_of(utf8_of(label).c_str())});
}

/// The camera hangs above the field, whose y goes down while the screen's goes up.
static Vector3 world_to_screen_point(Vector3 place) { return {place.x, field_height - place.y, place.z + 10}; }

static std::int32_t get_max_particles() { return 1000; }

/// In the place of what the library answers itself, so that the game believes to be on a Mac.
static void* get_what_the_library_knows() {
  fail(EXIT_NOT_AS_EXPECTED, "the game asked the player for what the library answers");
}

template <class Function>
static Il2CppCallback callback(Function* function) {
  return reinterpret_cast<Il2CppCallback>(function);
}

void register_internal_calls() {
  const struct {
    const char* name;
    Il2CppCallback function;
  } calls[] = {
      {"UnityEngine.Time::get_frameCount", callback(get_frame_count)},
      {"UnityEngine.Debug::Log(System.String)", callback(log)},
      {"UnityEngine.Graphics::DrawBox", callback(draw_box)},
      {"UnityEngine.Camera::WorldToScreenPoint", callback(world_to_screen_point)},
      {"UnityEngine.ParticleSystem/MainModule::get_maxParticles", callback(get_max_particles)},
      {"UnityEngine.Application::get_platform", callback(get_what_the_library_knows)},
      {"UnityEngine.Application::get_persistentDataPath", callback(get_what_the_library_knows)},
      {"UnityEngine.SystemInfo::GetDeviceModel", callback(get_what_the_library_knows)},
  };
  for (const auto& call : calls) api.il2cpp_add_internal_call(call.name, call.function);
  for (const auto& call : calls) {
    const Il2CppCallback found = api.il2cpp_resolve_icall(call.name);
    const bool overridden = call.function == callback(get_what_the_library_knows);
    expect(found == (overridden ? nullptr : call.function), "il2cpp_resolve_icall(%s) gives %p, registered was %p",
           call.name, found, call.function);
  }
  expect(api.il2cpp_resolve_icall("UnityEngine.Nothing::at_all") == nullptr, "an unknown internal call resolves");
  say("registered %d internal calls", static_cast<int>(std::size(calls)));
}
