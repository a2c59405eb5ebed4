// Every forwarding export, called in the real library: what arrives in the game's registers, what comes back, and
// which of the caller's registers survive. The image is echo_guest.cpp.
#include <atomic>
#include <string>
#include <type_traits>
#include <vector>

#include <doctest/doctest.h>
#include "host/il2cpp_types.h"
#include "support/checked_call.h"
#include "support/game.h"
#include "support/game_process.h"
#include "support/host_program.h"

using namespace vlm::test;

TEST_SUITE_BEGIN("forwarders");

namespace {

decltype(&vlm_unwrap_callback) unwrap_callback;
const std::uint64_t* echo_record;

constexpr std::uint64_t echo_result = 0xABCD'0000'0000'0000;

/// In place of Il2CppCallback in the rows: a type that no other parameter has. The game gets a stub for each.
using PlayerCallback = void (*)();

/// What a call has to carry of a type: the rest of a narrow value's register is undefined.
template <class T>
constexpr std::uint64_t bits_of = sizeof(T) < 8 ? 0xFFFF'FFFF : ~0ull;
template <>
constexpr std::uint64_t bits_of<void> = 0;
template <>
constexpr std::uint64_t bits_of<bool> = 1;

/// bool and narrow integers arrive widened to 32 bits.
template <class R, class... Parameters>
void check_export(const char* name, unsigned number, R (*)(Parameters...)) {
  CAPTURE(name);
  const std::vector<std::uint64_t> bits = {bits_of<Parameters>...};
  const std::vector<bool> is_callback = {std::is_same_v<Parameters, PlayerCallback>...};
  Machine machine = patterned_machine();
  std::uint64_t sent[6];  // a pattern of each one's own, with rubbish above a narrow value
  for (unsigned i = 0; i < bits.size(); ++i) {
    sent[i] = 0xA5A5'0000'8000'0000 + 0x11'0000 * (i + 1) + i % 2;
    (i < 4 ? machine.registers[win64_arguments[i]] : machine.stack[i]) = sent[i];
  }
  const std::uint64_t result = call_win64_code(library_function<void*>(name), machine).registers[rax];
  CHECK_EQ(echo_record[6], number);
  CHECK_EQ((result ^ (echo_result + number)) & bits_of<R>, 0);
  for (unsigned i = 0; i < bits.size(); ++i) {
    CAPTURE(i);
    std::uint64_t arrived = echo_record[i];
    if (is_callback[i]) {
      CHECK_NE(arrived, sent[i]);
      arrived = reinterpret_cast<std::uint64_t>(unwrap_callback(reinterpret_cast<void*>(arrived)));
    }
    CHECK_EQ(arrived & (bits[i] | 0xFFFF'FFFF), sent[i] & bits[i]);
  }
}

std::atomic<int> calls_during_start{0};

/// Eight of these make the process's first calls, some while the image's initializer is still busy.
DWORD WINAPI make_first_call(void* delay_ms) {
  Sleep(static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(delay_ms)));
  library_function<void (*)(int, int, int, int)>("il2cpp_exception_from_name_msg")(0x1111, 0x2222, 0x3333, 0x4444);
  if (game_variable<std::uint64_t>("echo_initialized") == 0) ++calls_during_start;
  return 0;
}

}  // namespace

TEST_CASE("threads that make the first call together start the game once") {
  const std::string log = read_file(library_folder() + L"PCSaveData\\loader.log");
  CHECK(log.contains("GameAssembly.dylib ready\r\n"));
  CHECK_EQ(log.find("dylib ready"), log.rfind("dylib ready"));
  CHECK_FALSE(log.contains("does not export"));
  CHECK_EQ(calls_during_start, 0);  // nobody got through before it was ready
  for (unsigned i = 0; i < 4; ++i) CHECK_EQ(echo_record[i], 0x1111 * (i + 1));  // and nothing was lost meanwhile
}

TEST_CASE("every forwarder moves and widens its arguments and keeps the caller's registers") {
  unsigned number = 0;
#define Il2CppCallback PlayerCallback
#define IL2CPP_FORWARD(result, name, parameters, arguments) \
  check_export(#name, number++, static_cast<result(*) parameters>(nullptr));
#define IL2CPP_LOCAL(result, name, parameters) ++number, library_function<void*>(#name);
#include "host/il2cpp_exports.def"
#undef Il2CppCallback
  CHECK_EQ(number, 241);
}

TEST_CASE("a callback that is handed over twice is one callback to the game; none is none") {
  const auto received = [](void* callback) {
    library_function<void (*)(void*, void*)>("il2cpp_class_for_each")(callback, nullptr);
    return echo_record[0];
  };
  CHECK_EQ(received(&unwrap_callback), received(&unwrap_callback));
  CHECK_EQ(received(nullptr), 0);
}

TEST_CASE("questions about the image") {
  const auto is_mac_address = library_function<decltype(&vlm_is_mac_address)>("vlm_is_mac_address");
  CHECK_EQ(find_symbol("_echo_record"), echo_record);
  CHECK_EQ(is_mac_address(echo_record), 1);
  CHECK_EQ(is_mac_address(&library), 0);

  const auto allocate = library_function<decltype(&vlm_allocate_trampoline)>("vlm_allocate_trampoline");
  void* page = allocate(find_symbol("echo_record"));
  REQUIRE(page != nullptr);
  *static_cast<std::uint8_t*>(page) = 0xC3;  // ret
  reinterpret_cast<void (*)()>(page)();
  CHECK_EQ(is_mac_address(page), 0);
  CHECK_EQ(allocate(&library), nullptr);
}

HOST_PROGRAM(forwarders) {
  load_library(argv[1]);
  // The first call of all is a forwarder: it starts the game before the game sees the call.
  HANDLE threads[8];
  for (std::uintptr_t i = 0; i < 8; ++i) {
    threads[i] = CreateThread(nullptr, 0, make_first_call, reinterpret_cast<void*>(i / 2 * 10), 0, nullptr);
  }
  WaitForMultipleObjects(8, threads, TRUE, INFINITE);
  unwrap_callback = library_function<decltype(&vlm_unwrap_callback)>("vlm_unwrap_callback");
  echo_record = static_cast<const std::uint64_t*>(game_symbol("echo_record"));
  leave(run_suite("forwarders"));
}
