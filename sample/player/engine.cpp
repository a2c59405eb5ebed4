#include "engine.h"

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
  show_box({x, y, width, height, static_cast<std::uint32_t>(color),
            utf16_of(utf8_of(label).c_str())});
}

/// The camera hangs above the field, whose y goes down while the screen's goes up.
static Vector3 world_to_screen_point(Vector3 place) { return {place.x, field_height - place.y, place.z + 10}; }

static std::int32_t get_max_particles() { return 1000; }

// The library answers these two itself, so that the game believes to be on a Mac.
static std::int32_t get_platform() { fail(EXIT_NOT_AS_EXPECTED, "the game asked the player for its platform"); }
static Il2CppString* get_device_model() { fail(EXIT_NOT_AS_EXPECTED, "the game asked the player for its device"); }

template <class Function>
static Il2CppCallback callback(Function* function) {
  return reinterpret_cast<Il2CppCallback>(function);
}

void register_internal_calls() {
  const struct {
    const char* name;
    Il2CppCallback function;
    bool overridden;  // by the library
  } calls[] = {
      {"UnityEngine.Time::get_frameCount", callback(get_frame_count), false},
      {"UnityEngine.Debug::Log(System.String)", callback(log), false},
      {"UnityEngine.Graphics::DrawBox", callback(draw_box), false},
      {"UnityEngine.Camera::WorldToScreenPoint", callback(world_to_screen_point), false},
      {"UnityEngine.ParticleSystem/MainModule::get_maxParticles", callback(get_max_particles), false},
      {"UnityEngine.Application::get_platform", callback(get_platform), true},
      {"UnityEngine.Application::get_persistentDataPath", callback(get_device_model), true},
      {"UnityEngine.SystemInfo::GetDeviceModel", callback(get_device_model), true},
  };
  for (const auto& call : calls) api.il2cpp_add_internal_call(call.name, call.function);
  for (const auto& call : calls) {
    const Il2CppCallback found = api.il2cpp_resolve_icall(call.name);
    expect(found == (call.overridden ? nullptr : call.function), "il2cpp_resolve_icall(%s) gives %p, registered was %p",
           call.name, found, call.function);
  }
  expect(api.il2cpp_resolve_icall("UnityEngine.Nothing::at_all") == nullptr, "an unknown internal call resolves");
  say("registered %d internal calls", static_cast<int>(sizeof calls / sizeof *calls));
}
