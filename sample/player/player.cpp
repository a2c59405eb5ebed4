// A player in small: what the Windows player of a game does with GameAssembly.dll, in the same order, in a window of
// its own. It expects the sample game and checks everything that it sees, so that a run which ends with code 0 says
// that loading, linking, calling and being called works.
//
//   SamplePlayer [--frames N] [--crash]
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "crash.h"
#include "engine.h"
#include "library.h"
#include "managed.h"
#include "mod.h"
#include "report.h"
#include "tour.h"
#include "window.h"

namespace {

constexpr int default_frames = 120;
constexpr int press_frame = 20, release_frame = 30;  // of the space bar, which is the keyboard's button A
constexpr unsigned frame_milliseconds = 16;          // about 60 frames a second

/// How the ball has to move: the game's rules once more, in Windows code.
struct ExpectedBall {
  float x = 100, y = 100, dx = 5, dy = 3.5f;
  int score = 0;

  static bool bounce(float& position, float& velocity, float limit) {
    if (position >= 0 && position <= limit) return false;
    position = position < 0 ? -position : 2 * limit - position;
    velocity = -velocity;
    return true;
  }
  void move() {
    x += dx;
    y += dy;
    constexpr float ball_size = 24;
    const bool side = bounce(x, dx, field_width - ball_size);
    const bool end = bounce(y, dy, field_height - ball_size);
    if (side || end) ++score;
  }
};

bool keyboard_counts;  // as a controller

/// The game may use the keyboard unless whoever starts the player decided about that.
void offer_keyboard() {
  wchar_t choice[8] = L"1";
  if (GetEnvironmentVariableW(L"VLM_KEYBOARD", choice, 8) == 0) SetEnvironmentVariableW(L"VLM_KEYBOARD", choice);
  keyboard_counts = choice[0] == L'1';
}

struct Options {
  int frames = default_frames;
  bool crash = false;
};

Options options_from(int count, char** arguments) {
  Options options;
  for (int i = 1; i < count; ++i) {
    char* end = nullptr;
    if (std::strcmp(arguments[i], "--frames") == 0 && i + 1 < count) {
      options.frames = static_cast<int>(std::strtol(arguments[++i], &end, 10));
      if (*end == 0 && options.frames > 0) continue;
    } else if (std::strcmp(arguments[i], "--crash") == 0) {
      options.crash = true;
      continue;
    }
    fail(EXIT_NOT_STARTED,
         "cannot use the argument '%s'\nusage: SamplePlayer [--frames N] [--crash]   runs N frames "
         "(%d) or crashes",
         arguments[i], default_frames);
  }
  return options;
}

// Callbacks of the game. A plug-in is asked for by its name and answered with the file to load.

int plugin_queries;

void on_log(const char* text) { print_line(text); }

const wchar_t* on_find_plugin(const wchar_t* name) {
  ++plugin_queries;
  return std::wcscmp(name, L"VelmoraStore") == 0 ? L"VelmoraStore.dll" : nullptr;
}

void start_runtime(int count, char** arguments) {
  const std::string data = utf8_of((player_directory() + L"Data").c_str());
  api.il2cpp_set_commandline_arguments(count, arguments, nullptr);
  api.il2cpp_set_data_dir(data.c_str());
  api.il2cpp_set_config_dir((data + "\\etc").c_str());
  api.il2cpp_register_log_callback(reinterpret_cast<Il2CppCallback>(on_log));
  api.il2cpp_set_find_plugin_callback(reinterpret_cast<Il2CppCallback>(on_find_plugin));
  const int result = api.il2cpp_init("IL2CPP Root Domain");
  expect(result != 0, "il2cpp_init returned 0");
  say("the runtime is up");
}

/// A file that the game has saved.
std::FILE* open_saved(const wchar_t* name) {
  const wchar_t* const chosen = _wgetenv(L"VLM_SAVE_DIR");
  const std::wstring folder = chosen != nullptr && *chosen != 0 ? chosen : player_directory() + L"PCSaveData";
  return _wfopen((folder + L"\\" + name).c_str(), L"r");
}

/// What the game saves itself: how many times it was started.
int saved_starts() {
  int starts = 0;
  if (std::FILE* file = open_saved(L"starts.txt")) {
    if (std::fscanf(file, "%d", &starts) != 1) starts = 0;
    std::fclose(file);
  }
  return starts;
}

/// The game has counted this start, in memory and in its file.
void check_starts(Il2CppClass* game_class, int starts_before) {
  const auto starts = static_value<std::int32_t>(game_class, "starts");
  expect(starts == starts_before + 1 && saved_starts() == starts,
         "the game counts start %d and has saved %d, expected %d", starts, saved_starts(), starts_before + 1);
}

/// What the game keeps in the cloud store, which is a file here. 0 for a key that is not there.
int saved_progress(const std::string& key) {
  int value = 0;
  if (std::FILE* file = open_saved(L"icloud_kvs.txt")) {
    const std::string format = "i\t" + key + "\t%d";
    char line[256];
    while (std::fgets(line, sizeof line, file) != nullptr && std::sscanf(line, format.c_str(), &value) != 1) {
    }
    std::fclose(file);
  }
  return value;
}

void check_games(Il2CppClass* game_class, int games_before) {
  const auto games = static_value<std::int32_t>(game_class, "games");
  expect(games == games_before + 1 && saved_progress("games") == games,
         "the game is number %d and has saved %d, expected %d", games, saved_progress("games"), games_before + 1);
}

void change_scene(int from, int to) {
  Il2CppClass* manager = find_class("UnityEngine.CoreModule.dll", "UnityEngine.SceneManagement", "SceneManager");
  void* arguments[] = {&from, &to};  // a Scene is its handle
  invoke(find_method(manager, "Internal_ActiveSceneChanged", 2), nullptr, arguments);
}

/// The position and score that the game's fields hold.
void check_ball(Il2CppClass* game_class, Il2CppObject* game, int frame, const ExpectedBall& expected) {
  Vector3 ball;
  std::int32_t score = 0, game_frame = 0;
  api.il2cpp_field_get_value(game, find_field(game_class, "position"), &ball);
  api.il2cpp_field_get_value(game, find_field(game_class, "score"), &score);
  api.il2cpp_field_get_value(game, find_field(game_class, "frame"), &game_frame);
  expect(game_frame == frame && ball.x == expected.x && ball.y == expected.y && score == expected.score,
         "frame %d: ball at %g, %g, score %d; expected frame %d: %g, %g, score %d", game_frame, ball.x, ball.y, score,
         frame, expected.x, expected.y, expected.score);
  if (frame % 60 == 0) say("frame %d: ball at %.1f, %.1f, score %d", frame, ball.x, ball.y, score);
}

/// The library has seen the space bar when the game polled; it tells other native code too.
void check_space_bar(const HeldSpaceBar& space_bar, bool seen) {
  if (!space_bar.is_ours()) {
    say("the window has no focus: no key is pressed");
    return;
  }
  expect(seen, "the space bar is held, but no controller's lower button");
}

/// Returns false when the user closed the window before the last frame.
bool run_frames(Il2CppClass* game_class, Il2CppGCHandle handle, int frames) {
  const MethodInfo* update = find_method(game_class, "Update", 0);
  const MethodInfo* on_gui = find_method(game_class, "OnGUI", 0);
  const MethodInfo* describe = find_method(game_class, "Describe", 0);
  ExpectedBall expected;
  const int best_before = saved_progress("best score");
  std::optional<HeldSpaceBar> space_bar;
  bool space_bar_seen = false;
  take_frame_record();
  for (current_frame = 1; current_frame <= frames; ++current_frame) {
    Il2CppObject* game = api.il2cpp_gchandle_get_target(handle);
    const int score_before = expected.score;
    expected.move();
    if (current_frame == press_frame && keyboard_counts) space_bar.emplace();
    clear_picture();
    invoke(update, game, nullptr);
    invoke(on_gui, game, nullptr);
    present();
    const FrameRecord seen = take_frame_record();
    expect(seen.boxes == 1 && seen.lines == expected.score - score_before,
           "frame %d drew %d boxes and logged %d lines, expected 1 and %d", current_frame, seen.boxes, seen.lines,
           expected.score - score_before);
    check_ball(game_class, game, current_frame, expected);
    if (space_bar && api.pc_pad_south_held() != 0) space_bar_seen = true;
    if (current_frame == release_frame && space_bar) {
      check_space_bar(*space_bar, space_bar_seen);
      space_bar.reset();
    }
    if (!pump_messages_for(frame_milliseconds)) return false;
  }
  invoke(describe, api.il2cpp_gchandle_get_target(handle), nullptr);
  const int best = std::max(best_before, expected.score);
  const int saved_best = saved_progress("best score");
  expect(saved_best == best, "the best score is saved as %d, expected %d", saved_best, best);
  check_mod(frames, expected.score);
  return true;
}

/// The library gives the window the game's title, from a thread of its own.
void wait_for_title() {
  for (int tries = 0; window_title() != L"Velmora" && tries < 100; ++tries) pump_messages_for(50);
  const std::wstring title = window_title();
  expect(title == L"Velmora", "the window's title is \"%s\", expected \"Velmora\"", utf8_of(title.c_str()).c_str());
  say("the window's title is Velmora");
}

}  // namespace

int main(int count, char** arguments) {
  SetConsoleOutputCP(CP_UTF8);
  const Options options = options_from(count, arguments);
  offer_keyboard();
  load_library();
  start_runtime(count, arguments);
  load_mod();
  open_window();
  register_internal_calls();

  Il2CppClass* game_class = find_class("Assembly-CSharp.dll", "", "Game");
  if (options.crash) crash_the_game(game_class);
  tour_of_classes(game_class);
  change_scene(0, 1);

  const int starts_before = saved_starts();
  const int games_before = saved_progress("games");
  Il2CppObject* game = api.il2cpp_object_new(game_class);
  const Il2CppGCHandle handle = api.il2cpp_gchandle_new(game, false);
  api.il2cpp_runtime_object_init(game);
  void* title[] = {api.il2cpp_string_new("ボールのゲーム")};
  invoke(find_method(game_class, "Start", 1), game, title);
  check_starts(game_class, starts_before);
  check_games(game_class, games_before);
  expect(plugin_queries == 1, "the game asked %d times for a plug-in, expected once", plugin_queries);
  const auto platform = unbox<std::int32_t>(invoke(find_method(game_class, "get_Platform", 0), nullptr, nullptr));
  expect(platform == 1, "the game runs on platform %d, expected 1", platform);

  tour_of_strings(game_class);
  tour_of_fields(game_class, game);
  tour_of_vectors(game_class);
  tour_of_handles(game);
  tour_of_exceptions(game_class);
  tour_of_threads(game_class);

  if (run_frames(game_class, handle, options.frames)) {
    wait_for_title();
  } else {
    say("the window was closed");
  }

  const std::wstring log = player_directory() + L"PCSaveData\\loader.log";
  expect(GetFileAttributesW(log.c_str()) != INVALID_FILE_ATTRIBUTES, "there is no %s", utf8_of(log.c_str()).c_str());
  say("the log is %s", utf8_of(log.c_str()).c_str());
  api.il2cpp_shutdown();
  fail(EXIT_NOT_AS_EXPECTED, "il2cpp_shutdown returned");
}
