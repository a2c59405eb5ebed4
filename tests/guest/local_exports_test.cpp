// The exports that do work of their own, in the real library. The image is local_guest.cpp.
#include <string>
#include <vector>

#include <doctest/doctest.h>
#include "support/game.h"
#include "support/host_program.h"

using namespace vlm::test;

TEST_SUITE_BEGIN("local_exports");

namespace {

long long add(long long a, long long b) { return a * 10 + b; }
void add_internal_call(const char* name) {
  library_function<void (*)(const char*, void*)>("il2cpp_add_internal_call")(name, reinterpret_cast<void*>(&add));
}
long long call_internal(const char* name) { return call_game<long long>("call_internal", name, 3ll, 4ll); }
std::string text_of(const char* name) { return reinterpret_cast<const char*>(call_internal(name)); }

std::string registered_names() {
  std::string names;
  for (long long i = 0; const auto* name = call_game<const char*>("internal_call_name", i); ++i) {
    names += std::string(name) + " ";
  }
  return names;
}

void* invoke(const char* method_name, void* object, void** exception = nullptr) {
  struct Method {
    const char* name;  // more follows
  } method{method_name};
  return library_function<void* (*)(void*, void*, void**, void**)>("il2cpp_runtime_invoke")(
      method_name ? &method : nullptr, object, nullptr, exception);
}

std::vector<std::int32_t> mod_calls;
bool mod_throws = false;
void mod_entry(std::int32_t called_before) {
  mod_calls.push_back(called_before);
  if (mod_throws) call_game<void>("throw_number");
  if (called_before == 1) Sleep(20);
  invoke(nullptr, nullptr);  // the mod's own invocations do not call it again, however long it takes
}
void other_mod(std::int32_t) {}

}  // namespace

TEST_CASE("a failed init stubs nothing and knows no main thread; a good one stubs the engine's internal calls") {
  const auto mod_register = library_function<decltype(&vlm_mod_register)>("vlm_mod_register");
  CHECK_EQ(library_function<decltype(&vlm_mod_abi_version)>("vlm_mod_abi_version")(), 1);
  CHECK_EQ(mod_register(nullptr), 0);
  for (int i = 0; i < 2; ++i) CHECK_EQ(mod_register(&mod_entry), 1);
  CHECK_EQ(mod_register(&other_mod), 0);

  CHECK_EQ(start_game(), 0);
  invoke("Internal_ActiveSceneChanged", nullptr);
  CHECK_EQ(registered_names(), "");
  CHECK(mod_calls.empty());

  game_variable<int>("init_result") = 7;
  CHECK_EQ(start_game("IL2CPP Root Domain"), 7);
  CHECK_EQ(std::string(game_variable<const char*>("domain_name")), "IL2CPP Root Domain");
  CHECK_EQ(registered_names(),
           "UnityEngine.Transform::Called UnityEngine.Transform/Enumerator::Called "
           "UnityEngine.Transform/Enumerator::Known Bare::Called Bare::Known ");
  CHECK_EQ(call_internal("Bare::Called"), 0);
  CHECK_EQ(call_internal("UnityEngine.Transform::Known"), 11);
}

TEST_CASE("the mod is called at its pace, on the main thread, once a scene is active") {
  void* const object = reinterpret_cast<void*>(0x5000);
  CHECK_EQ(invoke("Update", object), object);
  CHECK(mod_calls.empty());
  CHECK_EQ(invoke("Internal_ActiveSceneChanged", object), reinterpret_cast<void*>(0x5100));  // re-read from its handle
  CHECK_EQ(game_variable<int>("handles_alive"), 0);
  CHECK_EQ(invoke("Update", object), object);  // too early: nothing happens to the result
  CHECK_EQ(mod_calls, std::vector<std::int32_t>{0});
  Sleep(40);
  invoke(nullptr, nullptr);
  CHECK_EQ(mod_calls, std::vector<std::int32_t>{0, 1});

  Sleep(40);
  const HANDLE thread = CreateThread(
      nullptr, 0, [](void*) -> DWORD { return invoke("Update", nullptr) != nullptr; }, nullptr, 0, nullptr);
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  game_variable<void*>("pending_exception") = &library;
  void* exception = nullptr;
  CHECK_EQ(invoke("Update", object, &exception), object);
  CHECK_EQ(exception, &library);
  CHECK_EQ(mod_calls.size(), 2);
}

TEST_CASE("a game exception leaves nothing behind that it leaves the library's frames with") {
  const auto throws = [](std::int64_t (*function)(), bool in_reflection) {
    return call_game<std::int64_t>("throws", callback(function), std::int64_t{in_reflection}) % 256 != 0;
  };
  const auto invoke_update = []() -> std::int64_t { return invoke("Update", library) != nullptr; };
  for (const bool mod_throws_now : {true, true, false}) {
    Sleep(40);
    mod_throws = mod_throws_now;
    CHECK_EQ(throws(invoke_update, false), mod_throws_now);
  }
  CHECK_EQ(mod_calls.size(), 5);
  CHECK_EQ(game_variable<int>("handles_alive"), 0);

  add_internal_call("UnityEngine.Transform::Called");
  const auto wrap_callback = []() -> std::int64_t {
    return library_function<decltype(&vlm_wrap_method_callback)>("vlm_wrap_method_callback")(
               game_variable<const void*>("known_method"), reinterpret_cast<void*>(&add)) != nullptr;
  };
  const auto call = []() -> std::int64_t { return call_internal("UnityEngine.Transform::Called"); };
  for (const auto& function : {+wrap_callback, +call}) {
    CHECK(throws(function, true));
    CHECK_FALSE(throws(function, false));  // no lock was left behind
  }
}

TEST_CASE("internal calls: the game gets a function of its own convention, the player its own back") {
  const auto resolve = library_function<void* (*)(const char*)>("il2cpp_resolve_icall");
  constexpr const char *platform = "UnityEngine.Application::get_platform", *added = "UnityEngine.Mathf::Add",
                       *model = "UnityEngine.SystemInfo::GetDeviceModel",
                       *path = "UnityEngine.Application::get_persistentDataPath";
  for (const char* name : {platform, added, model, path}) add_internal_call(name);
  CHECK_NE(call_game<void*>("il2cpp_resolve_icall", added), reinterpret_cast<void*>(&add));
  CHECK_EQ(resolve(added), reinterpret_cast<void*>(&add));
  for (const char* name : {"UnityEngine.Mathf::Subtract", "UnityEngine.Transform::Known", platform}) {
    CHECK_EQ(resolve(name), nullptr);  // nobody's, and two of the game's own convention
  }
  CHECK_EQ(call_internal(platform), 1);
  for (const wchar_t* const chosen : {L"Mac15,3", L""}) {
    SetEnvironmentVariableW(L"VLM_DEVICE_MODEL", chosen);
    CHECK_EQ(text_of(model), *chosen != L'\0' ? "Mac15,3" : "Mac14,6");
  }

  wchar_t temporary[MAX_PATH];
  GetTempPathW(MAX_PATH, temporary);
  const std::wstring saves = std::wstring(temporary) + L"vlm-saves";
  SetEnvironmentVariableW(L"VLM_SAVE_DIR", saves.c_str());
  CHECK(text_of(path).ends_with("/vlm-saves"));
  CHECK_FALSE(text_of(path).contains('\\'));
  CHECK((GetFileAttributesW(saves.c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0);
  RemoveDirectoryW(saves.c_str());
}

TEST_CASE("the game's log lines reach the player's callback as they are") {
  static std::string logged;
  const auto register_log = library_function<void (*)(void*)>("il2cpp_register_log_callback");
  register_log(reinterpret_cast<void*>(+[](const char* text) { logged = text; }));
  call_game<void>("emit_log", "点数: 12");
  register_log(nullptr);
  call_game<void>("emit_log", "nobody listens");
  CHECK_EQ(logged, "点数: 12");
}

TEST_CASE("plug-in names cross as UTF-16 and come back as UTF-8") {
  static std::wstring asked_plugin;
  static const wchar_t* answer;
  const auto find = [](const wchar_t* name) { return asked_plugin = name, answer; };
  const std::string asked = "プラグイン";
  const std::wstring long_name(1023, L'x'), too_long(1024, L'x');
  const struct {
    const wchar_t* answer;
    std::string found;
  } cases[] = {{nullptr, asked},
               {L"C:\\Games\\プラグイン.dll", "C:\\Games\\プラグイン.dll"},
               {long_name.c_str(), std::string(1023, 'x')},
               {too_long.c_str(), asked}};  // does not fit: the game gets the name that it asked for
  const auto set_find = library_function<void (*)(void*)>("il2cpp_set_find_plugin_callback");
  set_find(nullptr);
  CHECK_EQ(std::string(call_game<const char*>("find_plugin", asked.c_str())), asked);
  set_find(reinterpret_cast<void*>(+find));
  for (const auto& c : cases) {
    answer = c.answer;
    CHECK_EQ(std::string(call_game<const char*>("find_plugin", asked.c_str())), c.found);
    CHECK_EQ(asked_plugin, L"プラグイン");
  }
}

HOST_PROGRAM(local_exports) {
  load_library(argv[1]);
  leave(run_suite("local_exports"));
}
