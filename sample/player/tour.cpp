#include "tour.h"

#include <windows.h>

#include <cstring>

#include "managed.h"
#include "report.h"

namespace {

struct ClassCount {
  int classes = 0;
  int values = 0;
  bool game_seen = false;
};

/// The game calls this; `user_data` has to come back as it was given.
void count_class(Il2CppClass* klass, void* user_data) {
  auto& count = *static_cast<ClassCount*>(user_data);
  ++count.classes;
  if (api.il2cpp_class_is_valuetype(klass)) ++count.values;
  if (std::strcmp(api.il2cpp_class_get_name(klass), "Game") == 0) count.game_seen = true;
}

std::string take_name(char* name) {
  const std::string copy = name;
  api.il2cpp_free(name);
  return copy;
}

}  // namespace

void tour_of_classes(Il2CppClass* game_class) {
  ClassCount count;
  api.il2cpp_class_for_each(reinterpret_cast<Il2CppCallback>(count_class), &count);
  expect(count.game_seen && count.values > 0 && count.values < count.classes,
         "il2cpp_class_for_each told of %d classes, %d of them values, the game's own %s", count.classes, count.values,
         count.game_seen ? "among them" : "missing");
  say("%d classes, %d of them value types", count.classes, count.values);

  Il2CppClass* vector = find_class("UnityEngine.CoreModule.dll", "UnityEngine", "Vector3");
  std::uint32_t alignment = 0;
  const int size = api.il2cpp_class_value_size(vector, &alignment);
  expect(size == 12 && alignment == 4, "Vector3 has %d bytes aligned to %u, expected 12 and 4", size, alignment);

  void* position = nullptr;
  Il2CppClass* mood = api.il2cpp_class_get_nested_types(game_class, &position);
  expect(mood != nullptr && api.il2cpp_class_is_enum(mood) && api.il2cpp_class_get_declaring_type(mood) == game_class,
         "class Game has no nested enum");
  const std::string name = take_name(api.il2cpp_type_get_reflection_name(api.il2cpp_class_get_type(mood)));
  expect(name == "Game+Mood", "the nested enum's name is %s, expected Game+Mood", name.c_str());

  std::string methods;
  position = nullptr;
  while (const MethodInfo* method = api.il2cpp_class_get_methods(game_class, &position)) {
    methods += methods.empty() ? "" : ", ";
    methods += api.il2cpp_method_get_name(method);
  }
  say("class Game has %s", methods.c_str());
}

void tour_of_strings(Il2CppClass* game_class) {
  const char* text = "日本語 🎮";
  Il2CppString* string = api.il2cpp_string_new(text);
  const int length = api.il2cpp_string_length(string);
  expect(length == 6, "\"%s\" has %d UTF-16 units, expected 6", text, length);
  expect(utf8_of(string) == text, "\"%s\" came back as \"%s\"", text, utf8_of(string).c_str());

  const std::wstring name = utf16_of("世界");
  void* arguments[] = {
      api.il2cpp_string_new_utf16(reinterpret_cast<const Il2CppChar*>(name.data()), static_cast<int>(name.size()))};
  Il2CppObject* greeting = invoke(find_method(game_class, "Greet", 1), nullptr, arguments);
  const std::string words = utf8_of(reinterpret_cast<Il2CppString*>(greeting));
  expect(words == "こんにちは、世界", "the greeting is \"%s\"", words.c_str());
  say("the game greets: %s", words.c_str());

  Il2CppString* one = api.il2cpp_string_intern(api.il2cpp_string_new("once"));
  expect(api.il2cpp_string_intern(api.il2cpp_string_new("once")) == one, "equal texts have two interned strings");
}

void tour_of_fields(Il2CppClass* game_class, Il2CppObject* game) {
  FieldInfo* position = find_field(game_class, "position");
  Vector3 start, found;
  api.il2cpp_field_get_value(game, position, &start);

  Vector3 wanted = {12.5f, 34.25f, -1};
  api.il2cpp_field_set_value(game, position, &wanted);
  api.il2cpp_field_get_value(game, position, &found);
  expect(std::memcmp(&found, &wanted, sizeof found) == 0, "a ball put to %g, %g, %g is at %g, %g, %g", wanted.x,
         wanted.y, wanted.z, found.x, found.y, found.z);

  void* arguments[] = {&start};  // the game's own way to put it back
  invoke(find_method(game_class, "MoveBall", 1), game, arguments);
  found = unbox<Vector3>(api.il2cpp_field_get_value_object(position, game));
  expect(std::memcmp(&found, &start, sizeof found) == 0, "the ball moved to %g, %g, %g is at %g, %g, %g", start.x,
         start.y, start.z, found.x, found.y, found.z);

  const auto instances = static_value<std::int32_t>(game_class, "instances");
  const auto width = static_value<std::int32_t>(game_class, "FieldWidth");
  expect(instances == 1 && width == 640, "%d games on a field %d wide, expected 1 and 640", instances, width);

  std::int32_t mood = 1;
  arguments[0] = &mood;
  const MethodInfo* set_mood = find_method(game_class, "SetMood", 1);
  invoke(set_mood, game, arguments);
  mood = 0;
  const auto before = unbox<std::int32_t>(invoke(set_mood, game, arguments));
  expect(before == 1, "the mood was %d, expected 1", before);
  say("fields and values hold what is put into them");
}

void tour_of_vectors(Il2CppClass* game_class) {
  Vector3 place = {12.5f, 34.5f, -1};
  void* arguments[] = {&place};
  const auto seen = unbox<Vector3>(invoke(find_method(game_class, "ToScreen", 1), nullptr, arguments));
  expect(seen.x == 12.5f && seen.y == 325.5f && seen.z == 9,
         "the game and the engine see it at %g, %g, %g, expected 12.5, 325.5, 9", seen.x, seen.y, seen.z);
}

void tour_of_handles(Il2CppObject* game) {
  const Il2CppGCHandle handle = api.il2cpp_gchandle_new(game, true);
  expect(handle != 0 && api.il2cpp_gchandle_get_target(handle) == game, "handle %p leads to another object",
         reinterpret_cast<void*>(handle));
  api.il2cpp_gchandle_free(handle);
  expect(api.il2cpp_gchandle_get_target(handle) == nullptr, "a freed handle still leads to an object");

  Il2CppClass* integer = api.il2cpp_class_from_name(api.il2cpp_get_corlib(), "System", "Int32");
  Il2CppArray* array = api.il2cpp_array_new(integer, 5);
  expect(api.il2cpp_array_length(array) == 5 && api.il2cpp_array_get_byte_length(array) == 20,
         "an array of 5 integers has %u elements in %u bytes", api.il2cpp_array_length(array),
         api.il2cpp_array_get_byte_length(array));
  const auto used = api.il2cpp_gc_get_used_size();
  expect(used > 0, "the heap is empty");
  say("handles and arrays work, %lld bytes of objects", static_cast<long long>(used));
}

void tour_of_exceptions(Il2CppClass* game_class) {
  void* arguments[] = {nullptr};
  Il2CppException* exception = nullptr;
  api.il2cpp_runtime_invoke(find_method(game_class, "Greet", 1), nullptr, arguments, &exception);
  expect(exception != nullptr, "a greeting for nobody raised nothing");
  char text[256], trace[256];
  api.il2cpp_format_exception(exception, text, sizeof text);
  api.il2cpp_format_stack_trace(exception, trace, sizeof trace);
  expect(std::strstr(text, "System.ArgumentNullException") != nullptr && std::strcmp(trace, "at Game.Greet") == 0,
         "the exception is \"%s\" %s", text, trace);
  say("caught %s %s", text, trace);
}

static DWORD WINAPI work(void* parameter) {
  auto* game_class = static_cast<Il2CppClass*>(parameter);
  Il2CppThread* self = api.il2cpp_thread_attach(api.il2cpp_domain_get());
  expect(self != nullptr && api.il2cpp_thread_current() == self, "the second thread is %p, attached as %p",
         static_cast<void*>(api.il2cpp_thread_current()), static_cast<void*>(self));
  std::size_t threads = 0;
  api.il2cpp_thread_get_all_attached_threads(&threads);
  expect(threads == 2, "%zu threads are attached, expected 2", threads);

  std::int32_t strings = 100;
  void* arguments[] = {&strings};
  Il2CppObject* result = invoke(find_method(game_class, "CountAllocations", 1), nullptr, arguments);
  const auto made = unbox<std::int64_t>(result);
  expect(made == strings, "the second thread counted %lld strings, expected %d", static_cast<long long>(made), strings);

  Il2CppObject* words = invoke(find_method(game_class, "DescribeThread", 0), nullptr, nullptr);
  const std::string account = utf8_of(reinterpret_cast<Il2CppString*>(words));
  expect(account.starts_with("2 invocations, 0 internal calls looked up, 0 exceptions, 0 lines, "),
         "the second thread's account is \"%s\"", account.c_str());
  say("second thread: %s", account.c_str());
  api.il2cpp_thread_detach(self);
  expect(api.il2cpp_thread_current() == nullptr, "a detached thread is still attached");
  return 0;
}

void tour_of_threads(Il2CppClass* game_class) {
  Il2CppThread* self = api.il2cpp_thread_current();
  expect(self != nullptr, "the thread that called il2cpp_init is not attached");
  const HANDLE thread = CreateThread(nullptr, 0, work, game_class, 0, nullptr);
  if (thread == nullptr) fail(EXIT_NOT_STARTED, "cannot start a thread (Windows error %lu)", GetLastError());
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  expect(api.il2cpp_thread_current() == self, "the first thread's record changed");
}
