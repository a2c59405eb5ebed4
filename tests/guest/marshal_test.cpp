// Calls from game code into Windows functions: every signature of signatures.h with random values, through the real
// library. The guest (marshal_guest.cpp) is compiled for macOS and this program for Windows, so the library is checked
// against what a compiler does on either side. With the name of an ending for an argument, a process that ends so.
#define DOCTEST_CONFIG_NO_MULTITHREADING
#define DOCTEST_CONFIG_IMPLEMENT
#include <doctest/doctest.h>
#include <windows.h>

#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "signatures.h"
#include "support/game_process.h"
#include "support/leave.h"
#include "vlm.h"

using namespace signatures;

namespace {

const char* image;

/// Starts the game when it is asked for first: the processes of the first test play it one at a time.
template <class T>
T library_function(const char* name) {
  static const HMODULE library = [] {
    SetEnvironmentVariableA("VLM_GAMEASSEMBLY", image);
    const HMODULE loaded = LoadLibraryA("GameAssembly.dll");
    if (loaded == nullptr) std::exit(1);
    reinterpret_cast<int (*)(const char*)>(reinterpret_cast<void*>(GetProcAddress(loaded, "il2cpp_init")))("marshal");
    return loaded;
  }();
  return reinterpret_cast<T>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

template <class R = std::uint32_t, class... A>
R call_game(const char* name, A... arguments) {
  const auto address = library_function<decltype(&vlm_native_symbol)>("vlm_native_symbol")(name);
  if (address == nullptr) std::exit(1);
  const auto wrap = library_function<decltype(&vlm_wrap_sysv_function)>("vlm_wrap_sysv_function");
  return reinterpret_cast<R (*)(A...)>(wrap(address, sizeof...(A)))(arguments...);
}

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
  return {Function<I, Numbers<P...>>::address(), sizeof...(P), {&mark<typename Case<I>::template Argument<P>>...},
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
  return call_game("call_with_float", name, std::bit_cast<std::uint32_t>(value));
}

}  // namespace

TEST_CASE("calls that cannot be made end the game") {
  const auto ending_of = [](const std::string& name) {
    const std::string arguments = std::string("\"") + image + "\" " + name;
    return vlm::test::run_game_process(vlm::test::program_folder(), L"marshal_test.exe",
                                       std::wstring(arguments.begin(), arguments.end()));
  };
  static constexpr struct {
    const char* name;
    const char* log;
  } cases[] = {{"Game.Space.Nobody::Method", "[icall] class not found for Game.Space.Nobody::Method"},
               {"Game.Space.Outer/Deep::Half", "[icall] class not found for Game.Space.Outer/Deep::Half"},
               {"Outer::Overloaded", "[icall] class not found for Outer::Overloaded"},
               {"Game.Space.Outer::Managed", "[icall] no internal-call method for Game.Space.Outer::Managed"},
               {"no-colons", "FATAL: "}};
  for (const auto& c : cases) {
    CAPTURE(c.name);
    const vlm::test::Ending ending = ending_of(c.name);
    CHECK_EQ(ending.exit_code, 3);
    CHECK_EQ(ending.box_text, std::string("cannot determine the signature of internal call ") + c.name);
    CHECK_NE(ending.log.find(c.log), std::string::npos);
  }
  CHECK_EQ(ending_of("Game.Space.Outer::Large").box_text,
           "struct argument of 72 bytes in Game.Space.Outer::Large is too large");
}

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
    CHECK_EQ(call_game("call_with_int", name, 21u), 42);
    CHECK_EQ(resolve(name), ints);
  }
  for (const char* name : {"Game.Space.Outer::Overloaded(System.Single)", "Game.Space.Outer/Inner/Deep::Half"}) {
    CAPTURE(name);
    add_internal_call(name, floats);
    CHECK_EQ(std::bit_cast<float>(call_float(name, 5)), 2.5f);
    CHECK_EQ(resolve(name), floats);
  }
}

TEST_CASE("a value type that contains itself does not keep the library busy for ever") {
  add_internal_call("Game.Space.Outer::Endless", reinterpret_cast<void*>(&twice));
  call_game("call_with_int", "Game.Space.Outer::Endless", 1u);
}

TEST_CASE("of eight first calls at once, one looks the method up") {
  static constexpr const char* name = "Game.Space.Outer::Slow";
  add_internal_call(name, reinterpret_cast<void*>(&half));
  const auto native_symbol = library_function<decltype(&vlm_native_symbol)>("vlm_native_symbol");
  auto* const lookups = static_cast<int*>(native_symbol("lookups"));
  *lookups = 0;
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
  CHECK_EQ(*lookups, 2);  // the class is in the second assembly
}

int main(int argc, char** argv) {
  if (argc < 2) return 1;
  image = argv[1];
  if (argc > 2) {
    add_internal_call(argv[2], reinterpret_cast<void*>(&twice));
    call_game(std::strstr(argv[2], "Large") ? "call_with_huge_struct" : "call_with_int", argv[2], 1u);
    return 0;
  }
  doctest::Context context;
  vlm::test::leave(context.run());
}
