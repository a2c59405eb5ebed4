// Calls from game code into Windows functions: every signature of signatures.h with random values, through the real
// library. The guest (marshal_guest.cpp) is compiled for macOS and this program for Windows, so the library is checked
// against what a compiler does on either side.
//
//   marshal IMAGE [NAME]     NAME: of an internal call that cannot be made; endings_test looks at how that ends
#include <atomic>
#include <bit>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <doctest/doctest.h>
#include "signatures.h"
#include "support/game.h"
#include "support/host_program.h"

using namespace signatures;
using namespace vlm::test;

TEST_SUITE_BEGIN("marshal");

namespace {

void add_internal_call(const char* name, void* function) {
  library_function<void (*)(const char*, void*)>("il2cpp_add_internal_call")(name, function);
}

// ---- The functions that are called ---------------------------------------------------------------------------------

using Slots = Byte[max_arguments + 1][slot_size];  // the arguments, then the method of a method callback
alignas(64) Slots received;
alignas(64) Byte returned[slot_size];

template <unsigned I, class Positions>
struct Function;
template <unsigned I, unsigned... P>
struct Function<I, Numbers<P...>> {
  template <class... A>
  static typename Case<I>::Result call(A... arguments) {
    unsigned position = 0;
    (std::memcpy(received[position++], &arguments, sizeof arguments), ...);
    if constexpr (!std::is_void_v<typename Case<I>::Result>) {
      return *reinterpret_cast<typename Case<I>::Result*>(returned);
    }
  }
  static void* address() {
    if constexpr (is_method_callback(I)) {
      return reinterpret_cast<void*>(&call<typename Case<I>::template Argument<P>..., const void*>);
    } else {
      return reinterpret_cast<void*>(&call<typename Case<I>::template Argument<P>...>);
    }
  }
};

/// Which bits of a value mean something: all but padding; one of a bool.
struct Marker {
  Byte* mask;
  template <class T>
  void field(std::size_t offset) {
    if constexpr (requires { typename T::IsStruct; }) {
      T::each(Marker{mask + offset});
    } else {
      std::memset(mask + offset, std::is_same_v<T, bool> ? 1 : 0xff, sizeof(T));
    }
  }
};
template <class T>
void mark(Byte* mask) {
  if constexpr (!std::is_void_v<T>) Marker{mask}.field<T>(0);
}

struct CaseInfo {
  void* function;
  unsigned count;
  void (*mark_arguments[max_arguments])(Byte*);
  void (*mark_result)(Byte*);
};
template <unsigned I, unsigned... P>
CaseInfo make_info(Numbers<P...> positions) {
  return {Function<I, Numbers<P...>>::address(),
          sizeof...(P),
          {&mark<typename Case<I>::template Argument<P>>...},
          &mark<typename Case<I>::Result>};
}
template <unsigned... I>
std::vector<CaseInfo> make_infos(Numbers<I...>) {
  return {make_info<I>(UpTo<Case<I>::count>())...};
}

void randomize(Byte* bytes, const Byte* mask, std::mt19937& random) {
  for (unsigned i = 0; i < slot_size; ++i) bytes[i] = static_cast<Byte>(random()) & mask[i];
}

bool equal(const Byte* left, const Byte* right, const Byte* mask) {
  unsigned different = 0;
  for (unsigned i = 0; i < slot_size; ++i) different |= (left[i] ^ right[i]) & mask[i];
  return different == 0;
}

/// Where a case goes wrong: the number of an argument, "result" or "method"; empty when every byte is right.
std::string fault_of(unsigned number, const CaseInfo& info, void* code, std::mt19937& random) {
  alignas(64) Slots arguments = {}, masks = {};
  alignas(64) Byte result[slot_size] = {}, result_mask[slot_size] = {};
  for (unsigned i = 0; i < info.count; ++i) {
    info.mark_arguments[i](masks[i]);
    randomize(arguments[i], masks[i], random);
  }
  info.mark_result(result_mask);
  randomize(returned, result_mask, random);
  std::memset(received, 0xcc, sizeof received);
  call_game<void>("run_case", number, code, &arguments, &result);
  for (unsigned i = 0; i < info.count; ++i) {
    if (!equal(received[i], arguments[i], masks[i])) return "argument " + std::to_string(i);
  }
  if (!equal(result, returned, result_mask)) return "result";
  if (is_method_callback(number)) {
    void* const method = call_game<void*>("case_method", number);
    if (std::memcmp(received[info.count], &method, sizeof method) != 0) return "method";
  }
  return {};
}

std::uint32_t twice(std::uint32_t value) { return 2 * value; }
float half(float value) { return value / 2; }
std::uint32_t call_float(const char* name, float value) {
  return call_game<std::uint32_t>("call_with_float", name, std::bit_cast<std::uint32_t>(value));
}

}  // namespace

TEST_CASE("every signature carries every byte both ways") {
  const std::vector<CaseInfo> infos = make_infos(UpTo<case_count>());
  const auto wrap_method = library_function<decltype(&vlm_wrap_method_callback)>("vlm_wrap_method_callback");
  const auto unwrap = library_function<decltype(&vlm_unwrap_callback)>("vlm_unwrap_callback");
  std::mt19937 random(1);
  unsigned arguments = 0;
  for (unsigned i = 0; i < case_count; ++i) {
    void* code;
    if (is_method_callback(i)) {
      code = wrap_method(call_game<void*>("case_method", i), infos[i].function);
      REQUIRE(unwrap(code) == infos[i].function);
    } else {
      const std::string name = "Cases::m" + std::to_string(i);
      add_internal_call(name.c_str(), infos[i].function);
      code = call_game<void*>("il2cpp_resolve_icall", name.c_str());
    }
    arguments += infos[i].count;
    for (int round = 0; round < 3; ++round) {
      CAPTURE(i);
      CHECK_EQ(fault_of(i, infos[i], code, random), "");
    }
  }
  CHECK_GT(arguments, 4 * case_count);
}

TEST_CASE("a method callback is one per method and function; what cannot be called is refused") {
  const auto wrap_method = library_function<decltype(&vlm_wrap_method_callback)>("vlm_wrap_method_callback");
  void* const method = call_game<void*>("case_method", 3u);
  void* const function = reinterpret_cast<void*>(&twice);
  void* const thunk = wrap_method(method, function);
  CHECK_EQ(wrap_method(method, function), thunk);
  CHECK_NE(wrap_method(method, reinterpret_cast<void*>(&half)), thunk);
  CHECK_NE(wrap_method(call_game<void*>("case_method", 7u), function), thunk);
  CHECK_EQ(wrap_method(nullptr, function), nullptr);
  CHECK_EQ(wrap_method(method, nullptr), nullptr);
  CHECK_EQ(wrap_method(call_game<void*>("many_parameters"), function), nullptr);  // 23
}

TEST_CASE("names find nested classes and overloads; the player gets its own function back") {
  const auto resolve = library_function<void* (*)(const char*)>("il2cpp_resolve_icall");
  void* const ints = reinterpret_cast<void*>(&twice);
  void* const floats = reinterpret_cast<void*>(&half);
  for (const char* name : {"Game.Space.Outer::Overloaded", "Game.Space.Outer::Overloaded(System.Int32)",
                           "Game.Space.Outer::Overloaded(System.String)",  // no such overload: the first
                           "Game.Space.Outer::Overloaded(System.Int32,System.Single)"}) {  // not an internal call
    CAPTURE(name);
    add_internal_call(name, ints);
    CHECK_EQ(call_game<std::uint32_t>("call_with_int", name, 21u), 42);
    CHECK_EQ(resolve(name), ints);
  }
  for (const char* name : {"Game.Space.Outer::Overloaded(System.Single)", "Game.Space.Outer/Inner/Deep::Half"}) {
    CAPTURE(name);
    add_internal_call(name, floats);
    CHECK_EQ(std::bit_cast<float>(call_float(name, 5)), 2.5f);
    CHECK_EQ(resolve(name), floats);
  }
}

TEST_CASE("on a thread of the game, Windows code finds its own precision of the x87") {
  const auto control_word = [](std::uint32_t) -> std::uint32_t {
    std::uint16_t word;
    asm volatile("fnstcw %0" : "=m"(word));
    return word;
  };
  add_internal_call("Game.Space.Outer::Overloaded", reinterpret_cast<void*>(+control_word));
  CHECK_EQ(call_game<std::uint32_t>("call_on_game_thread", "Game.Space.Outer::Overloaded"), 0x027F);
}

TEST_CASE("a value type that contains itself does not keep the library busy for ever") {
  add_internal_call("Game.Space.Outer::Endless", reinterpret_cast<void*>(&twice));
  call_game<std::uint32_t>("call_with_int", "Game.Space.Outer::Endless", 1u);
}

TEST_CASE("eight first calls at once are answered alike") {
  static constexpr const char* name = "Game.Space.Outer::Slow";
  add_internal_call(name, reinterpret_cast<void*>(&half));
  auto& lookups = game_variable<int>("lookups");
  lookups = 0;
  static std::atomic<int> ready = 0, right = 0;
  HANDLE threads[8];
  for (HANDLE& thread : threads) {
    const auto call = [](void*) -> DWORD {
      ++ready;
      while (ready < 8) YieldProcessor();
      right += std::bit_cast<float>(call_float(name, 3)) == 1.5f;
      return 0;
    };
    thread = CreateThread(nullptr, 0, call, nullptr, 0, nullptr);
  }
  WaitForMultipleObjects(8, threads, TRUE, INFINITE);
  CHECK_EQ(right, 8);
  CHECK_GE(lookups, 2);  // the class is in the second assembly; nobody waits for another one that looks
}

HOST_PROGRAM(marshal) {
  load_library(argv[1]);
  start_game();
  if (argc > 2) {
    add_internal_call(argv[2], reinterpret_cast<void*>(&twice));
    call_game<std::uint32_t>(std::strstr(argv[2], "Large") ? "call_with_huge_struct" : "call_with_int", argv[2], 1u);
    return 0;
  }
  leave(run_suite("marshal"));
}
