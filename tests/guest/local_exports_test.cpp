// The exports that do work of their own, in the real library. The image is local_guest.cpp.
#include <string>
#include <vector>

#include <doctest/doctest.h>
#include "support/game.h"
#include "support/host_program.h"

using namespace vlm::test;

TEST_SUITE_BEGIN("local_exports");

namespace {

std::vector<std::string> registered_names() {
  std::vector<std::string> names;
  for (long long i = 0; const auto* name = call_game<const char*>("internal_call_name", i); ++i) names.push_back(name);
  return names;
}

std::string logged;
void log_callback(const char* text) { logged = text; }
const wchar_t* no_plugin(const wchar_t*) { return nullptr; }
std::wstring asked_plugin;
std::wstring plugin_answer;
const wchar_t* find_plugin(const wchar_t* name) {
  asked_plugin = name;
  return plugin_answer.c_str();
}

long long add(long long a, long long b) { return a * 10 + b; }

std::vector<std::int32_t> mod_calls;
bool mod_throws = false;
void mod_entry(std::int32_t called_before) {
  mod_calls.push_back(called_before);
  if (mod_throws) call_game<void>("throw_number");
  // The mod's own invocations do not call it again, however long it takes.
  if (called_before == 1) Sleep(20);
  library_function<void* (*)(void*, void*, void**, void**)>("il2cpp_runtime_invoke")(nullptr, nullptr, nullptr,
                                                                                     nullptr);
}
void other_mod(std::int32_t) {}

void* invoke(const char* method_name, void* object, void** exception = nullptr) {
  struct Method {
    const char* name;  // more follows
  } method{method_name};
  return library_function<void* (*)(void*, void*, void**, void**)>("il2cpp_runtime_invoke")(
      method_name ? &method : nullptr, object, nullptr, exception);
}

}  // namespace

TEST_CASE("a failed init stubs nothing and knows no main thread; a good one stubs the engine's internal calls") {
  const auto mod_register = library_function<decltype(&vlm_mod_register)>("vlm_mod_register");
  CHECK_EQ(library_function<decltype(&vlm_mod_abi_version)>("vlm_mod_abi_version")(), 1);
  CHECK_EQ(mod_register(nullptr), 0);
  CHECK_EQ(mod_register(&mod_entry), 1);
  CHECK_EQ(mod_register(&other_mod), 0);
  CHECK_EQ(mod_register(&mod_entry), 1);

  const auto init = library_function<int (*)(const char*)>("il2cpp_init");
  CHECK_EQ(init("first domain"), 0);
  CHECK(registered_names().empty());
  invoke("Internal_ActiveSceneChanged", nullptr);
  CHECK(mod_calls.empty());

  game_variable<int>("init_result") = 7;
  CHECK_EQ(init("IL2CPP Root Domain"), 7);
  CHECK_EQ(std::string(game_variable<const char*>("domain_name")), "IL2CPP Root Domain");
  CHECK_EQ(registered_names(),
           std::vector<std::string>{"UnityEngine.Transform::Called", "UnityEngine.Transform/Enumerator::Called",
                                    "UnityEngine.Transform/Enumerator::Known", "Bare::Called", "Bare::Known"});
  CHECK_EQ(call_game<long long>("call_internal", "Bare::Called", 3ll, 4ll), 0);
  CHECK_EQ(call_game<long long>("call_internal", "UnityEngine.Transform::Known", 0ll, 0ll), 11);
}

TEST_CASE("the mod is called at its pace, on the main thread, once a scene is active") {
  invoke("Update", nullptr);
  CHECK(mod_calls.empty());
  void* const object = reinterpret_cast<void*>(0x5000);
  CHECK_EQ(invoke("Internal_ActiveSceneChanged", object), reinterpret_cast<void*>(0x5100));  // re-read from its handle
  CHECK_EQ(game_variable<int>("handles_alive"), 0);
  CHECK_EQ(mod_calls, std::vector<std::int32_t>{0});
  CHECK_EQ(invoke("Update", object), object);  // too early: nothing happens to the result
  Sleep(40);
  invoke(nullptr, nullptr);
  CHECK_EQ(mod_calls, std::vector<std::int32_t>{0, 1});

  Sleep(40);
  const HANDLE thread = CreateThread(
      nullptr, 0, [](void*) -> DWORD { return invoke("Update", nullptr) != nullptr; }, nullptr, 0, nullptr);
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  CHECK_EQ(mod_calls.size(), 2);

  game_variable<void*>("pending_exception") = &library;
  void* exception = nullptr;
  CHECK_EQ(invoke("Update", object, &exception), object);
  CHECK_EQ(exception, &library);
  CHECK_EQ(mod_calls.size(), 2);
  game_variable<void*>("pending_exception") = nullptr;
}

TEST_CASE("a game exception leaves nothing behind that it leaves the library's frames with") {
  const auto throws = [](std::int64_t (*function)(), bool in_reflection) {
    return call_game<std::int64_t>("throws", callback(function), std::int64_t{in_reflection}) % 256 != 0;
  };
  const auto invoke_update = []() -> std::int64_t { return invoke("Update", library) != nullptr; };
  const std::size_t calls = mod_calls.size();
  for (const bool mod_throws_now : {true, true, false}) {
    Sleep(40);
    mod_throws = mod_throws_now;
    CHECK_EQ(throws(invoke_update, false), mod_throws_now);
  }
  CHECK_EQ(mod_calls.size(), calls + 3);
  CHECK_EQ(game_variable<int>("handles_alive"), 0);

  library_function<void (*)(const char*, void*)>("il2cpp_add_internal_call")("UnityEngine.Transform::Called",
                                                                             reinterpret_cast<void*>(&add));
  const auto wrap_callback = []() -> std::int64_t {
    const void* const method = game_variable<const void*>("known_method");
    return library_function<decltype(&vlm_wrap_method_callback)>("vlm_wrap_method_callback")(
               method, reinterpret_cast<void*>(&add)) != nullptr;
  };
  const auto call_internal = []() -> std::int64_t {
    return call_game<std::int64_t>("call_internal", "UnityEngine.Transform::Called", 3ll, 4ll);
  };
  for (const auto& function : {+wrap_callback, +call_internal}) {
    CHECK(throws(function, true));
    CHECK_FALSE(throws(function, false));  // no lock was left behind
  }
}

TEST_CASE("internal calls: the game gets a function of its own convention, the player its own back") {
  const auto add_internal_call = library_function<void (*)(const char*, void*)>("il2cpp_add_internal_call");
  const auto resolve = library_function<void* (*)(const char*)>("il2cpp_resolve_icall");
  add_internal_call("UnityEngine.Mathf::Add", reinterpret_cast<void*>(&add));
  CHECK_NE(call_game<void*>("il2cpp_resolve_icall", "UnityEngine.Mathf::Add"), reinterpret_cast<void*>(&add));
  CHECK_EQ(resolve("UnityEngine.Mathf::Add"), reinterpret_cast<void*>(&add));
  CHECK_EQ(resolve("UnityEngine.Mathf::Subtract"), nullptr);
  CHECK_EQ(resolve("UnityEngine.Transform::Known"), nullptr);  // the game's own function

  add_internal_call("UnityEngine.Application::get_platform", reinterpret_cast<void*>(&add));
  CHECK_EQ(call_game<long long>("call_internal", "UnityEngine.Application::get_platform", 4ll, 2ll), 1);
  CHECK_EQ(resolve("UnityEngine.Application::get_platform"), nullptr);

  const auto text_of = [](const char* name) {
    return std::string(reinterpret_cast<const char*>(call_game<long long>("call_internal", name, 0ll, 0ll)));
  };
  add_internal_call("UnityEngine.SystemInfo::GetDeviceModel", reinterpret_cast<void*>(&add));
  CHECK_EQ(text_of("UnityEngine.SystemInfo::GetDeviceModel"), "Mac14,6");
  SetEnvironmentVariableW(L"VLM_DEVICE_MODEL", L"Mac15,3");
  CHECK_EQ(text_of("UnityEngine.SystemInfo::GetDeviceModel"), "Mac15,3");
  SetEnvironmentVariableW(L"VLM_DEVICE_MODEL", L"");
  CHECK_EQ(text_of("UnityEngine.SystemInfo::GetDeviceModel"), "Mac14,6");

  wchar_t temporary[MAX_PATH];
  GetTempPathW(MAX_PATH, temporary);
  const std::wstring saves = std::wstring(temporary) + L"vlm-saves";
  SetEnvironmentVariableW(L"VLM_SAVE_DIR", saves.c_str());
  add_internal_call("UnityEngine.Application::get_persistentDataPath", reinterpret_cast<void*>(&add));
  const std::string path = text_of("UnityEngine.Application::get_persistentDataPath");
  CHECK(path.ends_with("/vlm-saves"));
  CHECK_EQ(path.find('\\'), std::string::npos);
  CHECK((GetFileAttributesW(saves.c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0);
  RemoveDirectoryW(saves.c_str());
}

TEST_CASE("the game's log lines reach the player's callback as they are") {
  const auto register_log = library_function<void (*)(void*)>("il2cpp_register_log_callback");
  register_log(reinterpret_cast<void*>(&log_callback));
  call_game<void>("emit_log", "点数: 12");
  CHECK_EQ(logged, "点数: 12");
  register_log(nullptr);
  call_game<void>("emit_log", "nobody listens");
  CHECK_EQ(logged, "点数: 12");
}

TEST_CASE("plug-in names cross as UTF-16 and come back as UTF-8") {
  const auto set_find = library_function<void (*)(void*)>("il2cpp_set_find_plugin_callback");
  const char* asked = "プラグイン";
  set_find(nullptr);
  CHECK_EQ(call_game<const char*>("find_plugin", asked), asked);
  set_find(reinterpret_cast<void*>(&no_plugin));
  CHECK_EQ(call_game<const char*>("find_plugin", asked), asked);
  set_find(reinterpret_cast<void*>(&find_plugin));
  plugin_answer = L"C:\\Games\\プラグイン.dll";
  CHECK_EQ(std::string(call_game<const char*>("find_plugin", asked)), "C:\\Games\\プラグイン.dll");
  CHECK_EQ(asked_plugin, L"プラグイン");
  plugin_answer.assign(1023, L'x');
  CHECK_EQ(std::string(call_game<const char*>("find_plugin", asked)), std::string(1023, 'x'));
  plugin_answer.assign(1024, L'x');  // does not fit: the game gets the name that it asked for
  CHECK_EQ(call_game<const char*>("find_plugin", asked), asked);
}

HOST_PROGRAM(local_exports) {
  load_library(argv[1]);
  leave(run_suite("local_exports"));
}
