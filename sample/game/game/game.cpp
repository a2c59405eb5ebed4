// Assembly-CSharp.dll, the game itself: a ball on a playing field, a point for every wall that it hits.
//
// The functions are what a compiler of managed code would have made of a C# class:
//
//   class Game : IScoreKeeper {
//     public enum Mood { Calm, Cheerful }
//     public const int FieldWidth = 640, FieldHeight = 360;
//     public static int instances, starts, games;
//     string title; Vector3 position, velocity; int score, frame; Mood mood;
//     ...
#include "game/commentary.h"
#include "game/controllers.h"
#include "game/engine.h"
#include "game/progress.h"
#include "game/scoreboard.h"
#include "game/system.h"
#include "runtime/method_tables.h"
#include "runtime/thread_storage.h"

namespace {

constexpr int32_t field_width = 640, field_height = 360;  // the field's units are pixels of the player's window
constexpr int32_t ball_size = 24;

enum class Mood : int32_t { Calm, Cheerful };

struct Game {
  Il2CppObject object;
  Il2CppString* title;
  Vector3 position;  // the ball's upper left corner
  Vector3 velocity;  // units per frame
  int32_t score;
  int32_t frame;  // of the last Update
  Mood mood;
};

struct GameStatics {
  int32_t instances;
  int32_t starts;  // of the game on this machine, with this one
  int32_t games;   // of the player, with this one
} statics;

extern Il2CppClass game_class;

void Game_cctor(const MethodInfo*) { log(Text() << "game: class Game is ready"); }

void Game_ctor(Game* self, const MethodInfo*) {
  self->position = {100, 100, 0};
  self->velocity = {5, 3.5f, 0};
  ++statics.instances;
}

void Game_Start(Game* self, Il2CppString* title, const MethodInfo*) {
  self->title = title;
  log(Text() << "game: Start: hello from macOS code, " << utf8_of(title).c_str());
  log(Text() << "game: " << settings.argument_count << " arguments, data in "
             << (settings.data_directory == nullptr ? "(nowhere)" : settings.data_directory));
  const auto saves = utf8_of(application_persistent_data_path());
  log(Text() << "game: platform " << application_platform() << ", device "
             << utf8_of(system_info_device_model()).c_str() << ", saves in " << saves.c_str());
  statics.starts = count_start(saves.c_str());
  log(Text() << "game: this is start number " << statics.starts << ", at " << local_time().c_str());
  const int32_t best_score = progress_best_score();
  statics.games = progress_begin_game();
  log(Text() << "game: this is the player's game number " << statics.games << ", the best score so far is "
             << best_score);
  log(Text() << "game: the machine: " << machine().c_str());
  log(Text() << "game: plug-in VelmoraStore is " << find_plugin("VelmoraStore"));
  log(Text() << "game: " << scoreboard_report(0) << " score boards are listening");
  log(Text() << "game: at most " << particle_system_max_particles() << " particles, cursor lock "
             << cursor_lock_state());
}

/// Turns around at a wall; tells whether there was one.
bool bounce(float& position, float& velocity, float limit) {
  if (position >= 0 && position <= limit) return false;
  position = position < 0 ? -position : 2 * limit - position;
  velocity = -velocity;
  return true;
}

void Game_Update(Game* self, const MethodInfo*) {
  self->frame = time_frame_count();
  poll_controllers();
  self->position.x += self->velocity.x;
  self->position.y += self->velocity.y;
  const bool side = bounce(self->position.x, self->velocity.x, field_width - ball_size);
  const bool end = bounce(self->position.y, self->velocity.y, field_height - ball_size);
  if (!side && !end) return;
  ++self->score;
  self->mood = Mood::Cheerful;
  scoreboard_report(self->score);
  progress_take_score(self->score);
  comment_on_bounce(side, end);
  debug_log(new_string(Text() << "bounce in frame " << self->frame << ", score " << self->score));
}

void Game_OnGUI(Game* self, const MethodInfo*) {
  const int32_t color = self->mood == Mood::Cheerful ? 0xE0A030 : 0x4080E0;
  graphics_draw_box(static_cast<int32_t>(self->position.x), static_cast<int32_t>(self->position.y), ball_size,
                    ball_size, color, new_string(Text() << "score " << self->score));
}

/// The state in words, also told through the log.
Il2CppString* Game_Describe(Game* self, const MethodInfo*) {
  const Text text = Text() << "frame " << self->frame << ": ball at " << self->position.x << ", " << self->position.y
                           << ", score " << self->score;
  log(Text() << "game: " << text.c_str());
  log(Text() << "game: bounces: " << commentary());
  return new_string(text);
}

int32_t Game_get_Score(Game* self, const MethodInfo*) { return self->score; }
void Game_MoveBall(Game* self, Vector3 to, const MethodInfo*) { self->position = to; }
Mood Game_SetMood(Game* self, Mood mood, const MethodInfo*) {
  const Mood before = self->mood;
  self->mood = mood;
  return before;
}

/// A vector goes to the player and another one comes back, both by value.
Vector3 Game_ToScreen(Vector3 place, const MethodInfo*) {
  const Vector3 seen = camera_world_to_screen_point(place);
  log(Text() << "game: the place " << place.x << ", " << place.y << ", " << place.z << " is seen at " << seen.x << ", "
             << seen.y << ", " << seen.z);
  return seen;
}

/// What a bug looks like: the score is read from nowhere.
int32_t Game_Crash(const MethodInfo*) { return *static_cast<const volatile int32_t*>(nullptr); }

int32_t Game_get_Platform(const MethodInfo*) { return application_platform(); }

Il2CppString* Game_Greet(Il2CppString* name, const MethodInfo*) {
  if (name == nullptr) {
    il2cpp_raise_exception(il2cpp_get_exception_argument_null("name"));
    return nullptr;
  }
  return new_string(Text() << "こんにちは、" << utf8_of(name).c_str());
}

/// Work for a thread of the player: objects are made, and the thread's own counters say how many.
int64_t Game_CountAllocations(int32_t strings, const MethodInfo*) {
  const uint64_t before = allocations_of_thread();
  for (int32_t i = 0; i < strings; ++i) new_string(Text() << "string " << i);
  return static_cast<int64_t>(allocations_of_thread() - before);
}

/// What the calling thread has done, from its thread storage.
Il2CppString* Game_DescribeThread(const MethodInfo*) {
  return new_string(Text() << event_count(EVENT_INVOKE) << " invocations, " << event_count(EVENT_INTERNAL_CALL)
                           << " internal calls looked up, " << event_count(EVENT_EXCEPTION) << " exceptions, "
                           << event_count(EVENT_LOG) << " lines, " << allocated_bytes_of_thread() << " bytes in "
                           << allocations_of_thread() << " objects");
}

// enum Game.Mood

FieldInfo mood_fields[] = {
    {"value__", &int32_class.type, FIELD_PUBLIC, sizeof(Il2CppObject)},
    {"Calm", &int32_class.type, FIELD_PUBLIC | FIELD_STATIC | FIELD_LITERAL, 0, 0},
    {"Cheerful", &int32_class.type, FIELD_PUBLIC | FIELD_STATIC | FIELD_LITERAL, 0, 1},
};
Il2CppClass mood_class = {.name = "Mood",
                          .parent = &enum_class,
                          .type = {&mood_class, TYPE_VALUETYPE},
                          .flags = CLASS_NESTED_PUBLIC | CLASS_SEALED,
                          .instance_size = sizeof(Il2CppObject) + sizeof(Mood),
                          .alignment = alignof(Mood),
                          .fields = mood_fields,
                          .element = &int32_class};

// class Game

FieldInfo game_fields[] = {
    {"title", &string_class.type, 0, offsetof(Game, title)},
    {"position", &vector3_class.type, FIELD_PUBLIC, offsetof(Game, position)},
    {"velocity", &vector3_class.type, 0, offsetof(Game, velocity)},
    {"score", &int32_class.type, 0, offsetof(Game, score)},
    {"frame", &int32_class.type, 0, offsetof(Game, frame)},
    {"mood", &mood_class.type, 0, offsetof(Game, mood)},
    {"instances", &int32_class.type, FIELD_PUBLIC | FIELD_STATIC, offsetof(GameStatics, instances)},
    {"starts", &int32_class.type, FIELD_PUBLIC | FIELD_STATIC, offsetof(GameStatics, starts)},
    {"games", &int32_class.type, FIELD_PUBLIC | FIELD_STATIC, offsetof(GameStatics, games)},
    {"FieldWidth", &int32_class.type, FIELD_PUBLIC | FIELD_STATIC | FIELD_LITERAL, 0, field_width},
    {"FieldHeight", &int32_class.type, FIELD_PUBLIC | FIELD_STATIC | FIELD_LITERAL, 0, field_height},
};

const ParameterInfo start_parameters[] = {{"title", &string_class.type}};
const ParameterInfo move_ball_parameters[] = {{"to", &vector3_class.type}};
const ParameterInfo set_mood_parameters[] = {{"mood", &mood_class.type}};
const ParameterInfo to_screen_parameters[] = {{"place", &vector3_class.type}};
const ParameterInfo greet_parameters[] = {{"name", &string_class.type}};
const ParameterInfo count_parameters[] = {{"strings", &int32_class.type}};

MethodInfo game_methods[] = {
    static_method<Game_cctor>(".cctor", &void_class.type),
    instance_method<Game_ctor>(".ctor", &void_class.type),
    instance_method<Game_Start>("Start", &void_class.type, start_parameters),
    instance_method<Game_Update>("Update", &void_class.type),
    instance_method<Game_OnGUI>("OnGUI", &void_class.type),
    instance_method<Game_Describe>("Describe", &string_class.type),
    instance_method<Game_get_Score>("get_Score", &int32_class.type),
    instance_method<Game_MoveBall>("MoveBall", &void_class.type, move_ball_parameters),
    instance_method<Game_SetMood>("SetMood", &mood_class.type, set_mood_parameters),
    static_method<Game_ToScreen>("ToScreen", &vector3_class.type, to_screen_parameters),
    static_method<Game_Crash>("Crash", &int32_class.type),
    static_method<Game_get_Platform>("get_Platform", &int32_class.type),
    static_method<Game_Greet>("Greet", &string_class.type, greet_parameters),
    static_method<Game_CountAllocations>("CountAllocations", &int64_class.type, count_parameters),
    static_method<Game_DescribeThread>("DescribeThread", &string_class.type),
};
Il2CppClass* const game_nested[] = {&mood_class};

Il2CppClass game_class = {.name = "Game",
                          .parent = &object_class,
                          .type = {&game_class, TYPE_CLASS},
                          .instance_size = sizeof(Game),
                          .fields = game_fields,
                          .methods = game_methods,
                          .nested = game_nested,
                          .static_data = &statics};

Il2CppClass* const classes[] = {&game_class, &mood_class};

Il2CppImage image = {"Assembly-CSharp.dll", classes};
Il2CppAssembly assembly = {"Assembly-CSharp", &image};
const AssemblyRegistration registration(assembly);

}  // namespace
