// Calls from game code into Windows functions: every signature of signatures.h with random values, through the real
// library. The guest (marshal_guest.cpp) is compiled for macOS and this program for Windows, so the library is checked
// against what a compiler does on either side.
//
//   marshal IMAGE [NAME]     NAME: of an internal call that cannot be made; endings_test looks at how that ends
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <functional>
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

void* wrap_method(void* method, void* function) {
  return library_function<decltype(&vlm_wrap_method_callback)>("vlm_wrap_method_callback")(method, function);
}

// ---- The functions that are called ---------------------------------------------------------------------------------

using Slot = std::array<Byte, slot_size>;
alignas(64) Slot received[max_arguments + 1], returned;  // the arguments, then the method of a method callback

template <unsigned I, class... A>
typename Case<I>::Result called(A... arguments) {
  unsigned position = 0;
  (std::memcpy(&received[position++], &arguments, sizeof arguments), ...);
  if constexpr (!std::is_void_v<typename Case<I>::Result>) {
    return *reinterpret_cast<typename Case<I>::Result*>(&returned);
  }
}

/// Marks which bits of a value mean something: all but padding; one of a bool.
template <class T>
void mark(Byte* mask) {
  if constexpr (requires { typename T::IsStruct; }) {
    T::each([&]<class F>(std::size_t offset) { mark<F>(mask + offset); });
  } else if constexpr (!std::is_void_v<T>) {
    std::memset(mask, std::is_same_v<T, bool> ? 1 : 0xff, sizeof(T));
  }
}
template <class T>
Slot mask_of() {
  Slot mask = {};
  mark<T>(mask.data());
  return mask;
}
Slot masked(Slot bytes, const Slot& mask) {
  std::ranges::transform(bytes, mask, bytes.begin(), std::bit_and());
  return bytes;
}

struct CaseInfo {
  void* function;
  std::vector<Slot> masks;  // of the arguments, then of the result
};
template <unsigned I, unsigned... P>
CaseInfo make_info(Numbers<unsigned, P...>) {
  using C = Case<I>;  // what is no method callback gets no method, and nobody looks at what stands there
  return {reinterpret_cast<void*>(&called<I, typename C::template Argument<P>..., const void*>),
          {mask_of<typename C::template Argument<P>>()..., mask_of<typename C::Result>()}};
}
template <unsigned... I>
std::vector<CaseInfo> make_infos(Numbers<unsigned, I...>) {
  return {make_info<I>(UpTo<Case<I>::count>())...};
}

/// The values that do not come through a call of a case: "2 ", "method "; the result is behind the arguments.
std::string lost_by(unsigned number, const CaseInfo& info, void* code, std::mt19937& random) {
  alignas(64) Slot sent[max_arguments + 1], result = {};
  std::ranges::transform(info.masks, sent, [&](const Slot& mask) {
    Slot bytes;
    std::ranges::generate(bytes, [&] { return static_cast<Byte>(random()); });
    return masked(bytes, mask);
  });
  const std::size_t count = info.masks.size() - 1;
  returned = sent[count];
  std::memset(received, 0xcc, sizeof received);
  call_game<void>("run_case", number, code, &sent, &result);
  void* const method = call_game<void*>("case_method", number);
  const bool has_method = std::memcmp(&received[count], &method, sizeof method) == 0;
  std::string lost = is_method_callback(number) && !has_method ? "method " : "";
  received[count] = result;
  for (std::size_t i = 0; i <= count; ++i) {
    if (masked(received[i], info.masks[i]) != sent[i]) lost += std::to_string(i) + " ";
  }
  return lost;
}

std::uint32_t twice(std::uint32_t value) { return 2 * value; }
float half(float value) { return value / 2; }
std::uint32_t call_float(const char* name, float value) {
  return call_game<std::uint32_t>("call_with_float", name, std::bit_cast<std::uint32_t>(value));
}

}  // namespace

TEST_CASE("every signature carries every byte both ways") {
  const std::vector<CaseInfo> infos = make_infos(UpTo<case_count>());
  const auto unwrap = library_function<decltype(&vlm_unwrap_callback)>("vlm_unwrap_callback");
  std::mt19937 random(1);
  for (unsigned i = 0; i < case_count; ++i) {
    CAPTURE(i);
    void* code;
    if (is_method_callback(i)) {
      code = wrap_method(call_game<void*>("case_method", i), infos[i].function);
      REQUIRE(unwrap(code) == infos[i].function);
    } else {
      const std::string name = "Cases::m" + std::to_string(i);
      add_internal_call(name.c_str(), infos[i].function);
      code = call_game<void*>("il2cpp_resolve_icall", name.c_str());
    }
    for (int round = 0; round < 3; ++round) CHECK_EQ(lost_by(i, infos[i], code, random), "");
  }
}

TEST_CASE("a method callback is one per method and function; what cannot be called is refused") {
  void *const method = call_game<void*>("case_method", 3u), *const function = reinterpret_cast<void*>(&twice);
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
  const auto add = [&](const char* name, void* function) {
    add_internal_call(name, function);
    CHECK_EQ(resolve(name), function);
  };
  for (const char* name : {"Game.Space.Outer::Overloaded", "Game.Space.Outer::Overloaded(System.Int32)",
                           "Game.Space.Outer::Overloaded(System.String)"}) {  // no such overload: the first
    add(name, reinterpret_cast<void*>(&twice));
    CHECK_EQ(call_game<std::uint32_t>("call_with_int", name, 21u), 42);
  }
  for (const char* name : {"Game.Space.Outer::Overloaded(System.Single)", "Game.Space.Outer/Inner/Deep::Half"}) {
    add(name, reinterpret_cast<void*>(&half));
    CHECK_EQ(std::bit_cast<float>(call_float(name, 5)), 2.5f);
  }
}

TEST_CASE("eight first calls at once are answered alike, and find the precision of the x87 that Windows code has") {
  const auto control_word = [](std::uint32_t) -> std::uint32_t {
    std::uint16_t word;
    asm volatile("fnstcw %0" : "=m"(word));
    return word;
  };
  add_internal_call("Game.Space.Outer::Slow", reinterpret_cast<void*>(+control_word));
  CHECK_EQ(call_game<std::uint32_t>("count_answers", "Game.Space.Outer::Slow", 0x027Fu), 8);
}

HOST_PROGRAM(marshal) {
  load_library(argv[1]);
  start_game();
  if (argc > 2) {
    add_internal_call(argv[2], reinterpret_cast<void*>(&twice));
    return call_game<int>("call_with_int", argv[2], 1u);
  }
  leave(run_suite("marshal"));
}
