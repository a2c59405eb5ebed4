// Every forwarding export, called in the real library: what arrives in the game's registers, what comes back, and
// which of the caller's registers survive. The image is echo_guest.cpp.
#include <atomic>
#include <string>
#include <type_traits>

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

/// The part of a register that System V gives a meaning to, for a value of type T whose Windows register held `sent`:
/// bool and narrow integers arrive widened to 32 bits, the rest of a 32-bit value's register is undefined.
template <class T>
std::uint64_t received(std::uint64_t sent) {
  if constexpr (std::is_same_v<T, bool>) return (sent & 0xFF) != 0;
  if constexpr (sizeof(T) == 4) return static_cast<std::uint32_t>(sent);
  return sent;
}
template <class T>
std::uint64_t meaningful(std::uint64_t value) {
  if constexpr (std::is_void_v<T>) {
    return 0;
  } else if constexpr (sizeof(T) < 8) {
    return value & ((std::uint64_t{1} << (8 * (sizeof(T) < 4 ? sizeof(T) : 4))) - 1);
  } else {
    return value;
  }
}

/// What the caller's register holds for parameter i: a pattern of its own, with rubbish above a narrow value.
template <class T>
std::uint64_t sent_value(unsigned i) {
  if constexpr (std::is_same_v<T, bool>) return 0xF0F0'F0F0'F0F0'F000 + i % 2;
  return 0xA5A5'0000'8000'0000 + 0x1111 * (i + 1);
}

template <class R, class... Parameters>
void check_export(const char* name, unsigned number, R (*)(Parameters...)) {
  CAPTURE(name);
  void* entry = library_function<void*>(name);
  REQUIRE(entry != nullptr);
  unsigned i = 0;
  std::uint64_t sent[6] = {sent_value<Parameters>(i++)...};
  Machine machine = patterned_machine();
  for (i = 0; i < 6; ++i) (i < 4 ? machine.registers[win64_arguments[i]] : machine.stack[i]) = sent[i];
  const std::uint64_t result = call_win64_code(entry, machine).registers[rax];
  CHECK_EQ(echo_record[6], number);
  if constexpr (std::is_same_v<R, bool>) {
    CHECK_EQ(meaningful<R>(result), number & 0xFF);
  } else {
    CHECK_EQ(meaningful<R>(result), meaningful<R>(echo_result + number));
  }
  i = 0;
  const auto check_parameter = [&]<class T>(std::type_identity<T>) {
    CAPTURE(i);
    if constexpr (std::is_same_v<T, PlayerCallback>) {
      auto* stub = reinterpret_cast<void*>(echo_record[i]);
      CHECK_NE(stub, reinterpret_cast<void*>(sent[i]));
      CHECK_EQ(unwrap_callback(stub), reinterpret_cast<void*>(sent[i]));
    } else {
      const auto mask = sizeof(T) < 8 ? 0xFFFF'FFFFull : ~0ull;
      CHECK_EQ(echo_record[i] & mask, received<T>(sent[i]));
    }
    ++i;
  };
  (check_parameter(std::type_identity<Parameters>{}), ...);
}

std::atomic<int> calls_during_start{0};
constexpr std::uint64_t first_call[4] = {0x1111, 0x2222, 0x3333, 0x4444};

/// Eight of these make the process's first calls, some while the image's initializer is still busy.
DWORD WINAPI make_first_call(void* delay_ms) {
  Sleep(static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(delay_ms)));
  const auto first = library_function<void (*)(std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t)>(
      "il2cpp_exception_from_name_msg");
  first(first_call[0], first_call[1], first_call[2], first_call[3]);
  if (game_variable<std::uint64_t>("echo_initialized") == 0) ++calls_during_start;
  return 0;
}

}  // namespace

TEST_CASE("the library stands on system libraries alone and exports its interface, nothing else") {
  const auto base = reinterpret_cast<const std::byte*>(library);
  const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto& header = *reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos.e_lfanew);
  const auto directory = [&](unsigned index) {
    return base + header.OptionalHeader.DataDirectory[index].VirtualAddress;
  };

  for (auto* import = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(directory(IMAGE_DIRECTORY_ENTRY_IMPORT));
       import->Name != 0; ++import) {
    const std::string name = reinterpret_cast<const char*>(base + import->Name);
    CAPTURE(name);
    CHECK((name == "GDI32.dll" || name == "KERNEL32.dll" || name == "USER32.dll" || name == "bcrypt.dll" ||
           name == "msvcrt.dll"));
  }

  const auto& exports = *reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(directory(IMAGE_DIRECTORY_ENTRY_EXPORT));
  const auto* names = reinterpret_cast<const std::uint32_t*>(base + exports.AddressOfNames);
  unsigned il2cpp = 0;
  for (unsigned i = 0; i < exports.NumberOfNames; ++i) {
    const std::string name = reinterpret_cast<const char*>(base + names[i]);
    CAPTURE(name);
    CHECK((name.starts_with("il2cpp_") || name.starts_with("vlm_") || name.starts_with("pc_pad_")));
    il2cpp += name.starts_with("il2cpp_");
  }
  CHECK_EQ(il2cpp, 241);
}

TEST_CASE("threads that make the first call together start the game once") {
  const std::string log = read_file(library_folder() + L"PCSaveData\\loader.log");
  const std::string ready = "GameAssembly.dylib ready\r\n";
  const std::size_t at = log.find(ready);
  REQUIRE(at != std::string::npos);
  CHECK_EQ(log.find(ready, at + 1), std::string::npos);
  CHECK_EQ(log.find("does not export"), std::string::npos);
  CHECK_EQ(calls_during_start, 0);                                      // nobody got through before the game was ready
  for (int i = 0; i < 4; ++i) CHECK_EQ(echo_record[i], first_call[i]);  // and nothing was lost while they waited
}

TEST_CASE("every forwarder moves and widens its arguments and keeps the caller's registers") {
  unsigned number = 0;
#define Il2CppCallback PlayerCallback
#define IL2CPP_FORWARD(result, name, parameters, arguments) \
  check_export(#name, number++, static_cast<result(*) parameters>(nullptr));
#define IL2CPP_LOCAL(result, name, parameters) ++number;
#include "host/il2cpp_exports.def"
#undef Il2CppCallback
}

TEST_CASE("a callback that is handed over twice is one callback to the game") {
  const auto for_each = library_function<void (*)(void*, void*)>("il2cpp_class_for_each");
  const auto callback = reinterpret_cast<void*>(&unwrap_callback);
  for_each(callback, nullptr);
  const std::uint64_t first = echo_record[0];
  for_each(callback, nullptr);
  CHECK_EQ(echo_record[0], first);
  for_each(nullptr, nullptr);
  CHECK_EQ(echo_record[0], 0);
}

TEST_CASE("calls that the game must not receive do not reach it") {
  library_function<void (*)()>("il2cpp_gc_enable")();
  const std::uint64_t before = echo_record[6];
  for (const char* name :
       {"il2cpp_set_memory_callbacks", "il2cpp_unity_install_unitytls_interface",
        "il2cpp_unity_set_android_network_up_state_func", "il2cpp_register_debugger_agent_transport"}) {
    library_function<void (*)(void*)>(name)(&library);
    CHECK_EQ(echo_record[6], before);
  }
}

TEST_CASE("questions about the image") {
  const auto native_symbol = library_function<decltype(&vlm_native_symbol)>("vlm_native_symbol");
  const auto is_mac_address = library_function<decltype(&vlm_is_mac_address)>("vlm_is_mac_address");
  CHECK_EQ(native_symbol("_echo_record"), echo_record);
  CHECK_EQ(native_symbol("no_such_symbol"), nullptr);
  CHECK_EQ(is_mac_address(echo_record), 1);
  CHECK_EQ(is_mac_address(&library), 0);

  const auto allocate = library_function<decltype(&vlm_allocate_trampoline)>("vlm_allocate_trampoline");
  void* page = allocate(native_symbol("echo_record"));
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
