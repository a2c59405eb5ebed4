// The exports that do work of their own, in the real library. The image is local_guest.cpp.
#include <string>
#include <utility>

#include <doctest/doctest.h>
#include "support/game.h"
#include "support/host_program.h"

using namespace vlm::test;

TEST_SUITE_BEGIN("local_exports");

namespace {

long long add(long long a, long long b) { return a * 10 + b; }
void* const add_address = reinterpret_cast<void*>(&add);
void add_internal_call(const char* name) {
  library_function<void (*)(const char*, void*)>("il2cpp_add_internal_call")(name, add_address);
}
long long call_internal(const char* name) { return call_game<long long>("call_internal", name, 3ll, 4ll); }
std::string text_of(const char* name) { return reinterpret_cast<const char*>(call_internal(name)); }

/// A method begins with its name.
void* invoke(const char* method, void* object, void** exception = nullptr) {
  return library_function<void* (*)(void*, void*, void**, void**)>("il2cpp_runtime_invoke")(method ? &method : nullptr,
                                                                                            object, nullptr, exception);
}

std::string mod_calls;  // whether it was called before, each time
bool mod_throws = false;
void mod_entry(std::int32_t called_before) {
  mod_calls += std::to_string(called_before);
  if (mod_throws) call_game<void>("throw_number");
  if (called_before == 1) Sleep(20);
  invoke(nullptr, nullptr);  // the mod's own invocations do not call it again, however long it takes
}

}  // namespace

TEST_CASE("a failed init stubs nothing and knows no main thread; a good one stubs the engine's internal calls") {
  const auto mod_register = library_function<decltype(&vlm_mod_register)>("vlm_mod_register");
  CHECK_EQ(library_function<decltype(&vlm_mod_abi_version)>("vlm_mod_abi_version")(), 1);
  CHECK_EQ(mod_register(nullptr), 0);
  for (int i = 0; i < 2; ++i) CHECK_EQ(mod_register(&mod_entry), 1);
  CHECK_EQ(mod_register([](std::int32_t) {}), 0);

  CHECK_EQ(start_game(), 0);
  invoke("Internal_ActiveSceneChanged", nullptr);
  const auto registered_names = [] { return std::string(call_game<const char*>("internal_call_names")); };
  CHECK_EQ(registered_names() + mod_calls, "");

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
  CHECK_EQ(mod_calls, "");
  CHECK_EQ(invoke("Internal_ActiveSceneChanged", object), reinterpret_cast<void*>(0x5100));  // re-read from its handle
  CHECK_EQ(invoke("Update", object), object);  // too early: nothing happens to the result
  CHECK_EQ(mod_calls, "0");
  Sleep(40);
  invoke(nullptr, nullptr);
  CHECK_EQ(mod_calls, "01");

  Sleep(40);
  const auto update = [](void*) -> DWORD { return invoke("Update", nullptr) != nullptr; };
  WaitForSingleObject(CreateThread(nullptr, 0, update, nullptr, 0, nullptr), INFINITE);
  game_variable<void*>("pending_exception") = &library;
  void* exception = nullptr;
  CHECK_EQ(invoke("Update", object, &exception), object);
  CHECK_EQ(exception, &library);
  CHECK_EQ(mod_calls, "01");
}

TEST_CASE("a game exception of the mod leaves nothing behind that it leaves the library's frames with") {
  const auto invoke_update = []() -> std::int64_t { return invoke("Update", library) != nullptr; };
  for (const bool mod_throws_now : {true, true, false}) {
    Sleep(40);
    mod_throws = mod_throws_now;
    CHECK_EQ(call_game<std::int64_t>("throws", callback(+invoke_update)) % 256 != 0, mod_throws_now);
  }
  CHECK_EQ(mod_calls.size(), 5);
  CHECK_EQ(game_variable<int>("handles_alive"), 0);
}

TEST_CASE("internal calls: the game gets a function of its own convention, the player its own back") {
  const auto resolve = library_function<void* (*)(const char*)>("il2cpp_resolve_icall");
  constexpr const char *platform = "UnityEngine.Application::get_platform", *added = "UnityEngine.Mathf::Add",
                       *model = "UnityEngine.SystemInfo::GetDeviceModel",
                       *path = "UnityEngine.Application::get_persistentDataPath";
  for (const char* name : {platform, added, model, path}) add_internal_call(name);
  CHECK_NE(call_game<void*>("il2cpp_resolve_icall", added), add_address);
  CHECK_EQ(resolve(added), add_address);
  for (const char* name : {"UnityEngine.Mathf::Subtract", "UnityEngine.Transform::Known", platform}) {
    CHECK_EQ(resolve(name), nullptr);  // nobody's, and two of the game's own convention
  }
  CHECK_EQ(call_internal(platform), 1);
  CHECK_EQ(text_of(model), "Mac14,6");
  SetEnvironmentVariableW(L"VLM_DEVICE_MODEL", L"Mac15,3");
  CHECK_EQ(text_of(model), "Mac15,3");

  const std::wstring saves = library_folder() + L"vlm-saves";
  SetEnvironmentVariableW(L"VLM_SAVE_DIR", saves.c_str());
  CHECK(text_of(path).ends_with("/vlm-saves"));
  CHECK_FALSE(text_of(path).contains('\\'));
  CHECK(RemoveDirectoryW(saves.c_str()));
}

TEST_CASE("the game's log lines reach the player's callback as they are") {
  static std::string logged;
  const auto register_log = library_function<void (*)(void*)>("il2cpp_register_log_callback");
  register_log(reinterpret_cast<void*>(+[](const char* text) { logged = text; }));
  call_game<void>("emit_log", "点数: 12");
  CHECK_EQ(logged, "点数: 12");
}

TEST_CASE("plug-in names cross as UTF-16 and come back as UTF-8") {
  static std::wstring asked, answer;
  const std::string name = "プラグイン";
  const auto set_find = library_function<void (*)(void*)>("il2cpp_set_find_plugin_callback");
  const auto found = [&] { return std::string(call_game<const char*>("find_plugin", name.c_str())); };
  set_find(reinterpret_cast<void*>(+[](const wchar_t* name) { return asked = name, answer.c_str(); }));
  answer = L"C:\\プラグイン.dll";
  CHECK_EQ(found(), "C:\\" + name + ".dll");
  CHECK_EQ(asked, L"プラグイン");
  answer.assign(1024, L'x');  // does not fit
  CHECK_EQ(found(), name);
}

HOST_PROGRAM(local_exports) {
  load_library(argv[1]);
  leave(run_suite("local_exports"));
}
