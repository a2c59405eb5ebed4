// How a start ends that cannot go on: message box, log and exit code of the real library, each in its own process.
#include <algorithm>
#include <filesystem>

#include <doctest/doctest.h>
#include "support/game.h"
#include "support/game_process.h"
#include "support/good_image.h"
#include "support/host_program.h"
#include "tls/patch_list.h"

using namespace vlm;
using namespace vlm::test;

TEST_SUITE_BEGIN("endings");

namespace {

const std::wstring folder = program_folder();         // of the programs and the library without a patch list
const std::wstring work_folder = folder + L"work\\";  // for what is made here; without the library's name in its path

std::wstring in_quotes(const std::wstring& text) { return L"\"" + text + L"\""; }
std::wstring guest(const std::wstring& name) { return folder + L"guests\\" + name + L"_guest.dylib"; }
std::string text_of(const auto& bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }
std::string utf8(const std::wstring& path) { return text_of(std::filesystem::path(path).u8string()); }

Ending start_with(const std::wstring& image, const std::wstring& probe = L"", const Environment& environment = {}) {
  return run_host(L"guest " + in_quotes(image) + L" " + probe, environment);
}

/// Starts the library in a folder of its own whose GameAssembly.dll ends in `appended`, with the image that is good.
Ending start_patched(const std::string& appended) {
  REQUIRE(write_file(work_folder + L"GameAssembly.dll", read_file(folder + L"GameAssembly.dll") + appended));
  REQUIRE(write_file(work_folder + L"GameAssembly.dylib", read_file(guest(L"start"))));
  return run_host(in_quotes(work_folder + L"GameAssembly.dylib"), {}, work_folder);
}

/// Ended with this message, in which a * stands for anything, and with `logged` among the lines before it.
void check_fatal(const Ending& ending, const std::string& text, const std::string& logged = "") {
  const std::size_t star = text.find('*');
  CAPTURE(text);
  CAPTURE(ending.log);
  CHECK_EQ(ending.exit_code, 3);
  CHECK_EQ(ending.box_caption, "Velmora");
  CHECK(ending.box_text.starts_with(text.substr(0, star)));
  CHECK((star == text.npos ? ending.box_text == text : ending.box_text.ends_with(text.substr(star + 1))));
  CHECK(ending.log.contains("FATAL: " + ending.box_text + "\r\n"));
  CHECK(ending.log.contains(logged));
}

}  // namespace

TEST_CASE("a good image starts, and the log tells the steps in order") {
  const Ending ending = start_with(guest(L"start"));
  CHECK_EQ(ending.exit_code, 0);
  CHECK_EQ(ending.box_text, "");
  CHECK(ending.log.starts_with("[    0."));
  const std::string missing = missing_part(
      ending.log, {"GameAssembly.dll loaded on Windows ", "version ", "adopting existing threads", "loading ",
                   "[bind] imports without an implementation, a call ends the game: 1\r\n",
                   "[bind]  _missing_function\r\n", "[macho] ", " accesses to thread storage redirected\r\n",
                   "[api] GameAssembly.dylib does not export _il2cpp_set_config_dir\r\n",
                   "running GameAssembly.dylib initializers\r\n", "GameAssembly.dylib ready\r\n",
                   "il2cpp_init starting\r\n", "il2cpp_init returned 0\r\n"});
  CHECK_EQ(missing, "");
}

TEST_CASE("an image that cannot be taken is named, with the reason in the box or in the log") {
  const std::wstring path = work_folder + L"image.dylib";
  std::string damaged = utf8(path) + " is damaged or not supported: ";
  std::ranges::replace(damaged, '\\', '/');
  const auto not_loaded = [](const std::wstring& image) {
    return "could not load " + utf8(image) + " (copy GameAssembly.dylib from the Mac app's Contents/Frameworks)";
  };
  ImageDraft rebased = good_draft(), started = good_draft();
  rebased.rebase = Bytes().u8(0x22).uleb(0x2FF9).u8(0x51);
  started.segments[data_segment].content.put_at(8, data_vmaddr);  // behind an initializer that returns at once
  const struct {
    std::string bytes, text, logged;
  } cases[] = {
      {"MZ is another format", not_loaded(path), "not a 64-bit Mach-O\r\n"},
      {std::string("\xCA\xFE\xBA\xBE\0\0\0\1\1\0\0\x0C\0\0\0\0\0\0\0\x1C\0\0\0\4\0\0\0\0", 28),  // arm64 only
       not_loaded(path), "[macho] " + utf8(path) + " has no x86_64 slice\r\n"},
      {text_of(build_image(good_draft())).substr(0, 40), damaged + "*", ""},
      {text_of(build_image(rebased)), damaged + "rebase stream, before offset 4: 1 pointers from 0x2ff9*", ""},
      {text_of(build_image(started)), damaged + "initializer 1 of section __DATA,__mod_init_func is 0x*", ""},
  };
  for (const auto& c : cases) {
    REQUIRE(write_file(path, c.bytes));
    check_fatal(start_with(path), c.text, c.logged);
  }
  const std::wstring absent = work_folder + L"absent.dylib";
  check_fatal(start_with(absent), not_loaded(absent), "[macho] cannot read ");
}

TEST_CASE("a second game is told so and leaves; the first plays on") {
  const HANDLE mutex = CreateMutexW(nullptr, TRUE, L"Local\\VelmoraPC_SingleInstance");
  const Ending ending = start_with(guest(L"start"));
  CloseHandle(mutex);
  CHECK_EQ(ending.exit_code, 0);
  CHECK_EQ(ending.box_caption + ": " + ending.box_text, "Velmora: Velmora is already running.");
  CHECK_FALSE(ending.log.contains("adopting"));
}

TEST_CASE("a call of a missing import is survived on request") {
  const Ending ending = start_with(guest(L"start"), L"call_missing_function", {{L"VLM_TRAP_CONTINUE", L"1"}});
  CHECK_EQ(ending.exit_code, 0);  // the four calls returned 0
  const std::string line = "[trap] unimplemented import _missing_function (flat) called; returning 0\r\n";
  CHECK_EQ(missing_part(ending.log, {line, line, line}), "");
  CHECK_EQ(missing_part(ending.log, {line, line, line, line}), line);
}

TEST_CASE("the game ends as its code asks") {
  CHECK_EQ(start_with(guest(L"system"), L"exit_with_handlers").exit_code, 77);  // newest first, each once
  CHECK_EQ(start_with(guest(L"files"), L"exit_with_an_open_stream").exit_code, 5);
  CHECK_EQ(read_file(L"exit.tmp"), "flushed");
  CHECK(DeleteFileW(L"exit.tmp"));
}

TEST_CASE("game code that cannot go on ends the game with the reason") {
  const std::string uncaught = "uncaught C++ exception of type 7Escaped";
  const std::string no_memory = "std::string: no memory for 18446744073709551615 characters";
  const std::string no_signature = "cannot determine the signature of internal call ";
  // clang-format off
  const struct {
    const wchar_t* image;
    const wchar_t* probe;
    std::string text;         // with a * for anything
    std::string logged = "";  // before it
    const wchar_t* program = L"guest";
  } cases[] = {
      {L"system", L"call_abort", "abort() called by game code"},
      {L"system", L"smash_stack", "stack smashing detected in game code"},
      {L"start", L"call_missing_function", "unimplemented import _missing_function (flat) called"},
      {L"start", L"", "il2cpp_gc_collect was called, but GameAssembly.dylib does not export*", "", L"missing_export"},
      {L"foundation_values", L"read_past_the_end", "NSArray index 2 out of range (2)"},
      {L"foundation_values", L"change_while_looping", "collection * mutated during enumeration"},
      {L"cxx_runtime", L"new_without_memory", "operator new(1152921504606846976) failed"},
      {L"cxx_runtime", L"call_pure_virtual", "pure virtual function called"},
      {L"cxx_runtime", L"call_terminate", "std::terminate called"},
      {L"cxx_runtime", L"initialize_within_itself", "the initializer of a static variable waits for itself"},
      {L"cxx_strings", L"insert_out_of_range", "basic_string::insert out of range"},
      {L"cxx_strings", L"insert_before_the_string", "basic_string::insert out of range"},
      {L"cxx_strings", L"append_more_than_there_are_addresses", no_memory},
      {L"cxx_strings", L"reserve_everything", no_memory},
      {L"uncaught", L"uncaught_class", uncaught},
      {L"uncaught", L"uncaught_number", "uncaught C++ exception of type ?", "[eh] the exception's type is the import __ZTIi"},
      {L"uncaught", L"uncaught_in_thread", uncaught},
      {L"uncaught", L"leave_once", "a C++ exception of type 7Escaped leaves a dispatch_once function"},
      {L"uncaught", L"escape_noexcept", "std::terminate called"},
      {L"uncaught", L"rethrow_nothing", "__cxa_rethrow with no active exception"},
      {L"exceptions", L"rethrow_null_pointer", "rethrow_exception(nullptr)"},
      {L"uncaught", L"call_personality", "__gxx_personality_v0 called directly"},
      {L"uncaught", L"throw_from_dwarf_frame", uncaught, "[eh] unsupported unwind encoding 0x04"},
      {L"uncaught", L"throw_past_damaged_table", "[eh] the exception table at 0x*is damaged: its call sites leave the image"},
      {L"marshal", L"Game.Space.Outer/Deep::Half", no_signature + "Game.Space.Outer/Deep::Half",
       "[icall] class not found for Game.Space.Outer/Deep::Half", L"marshal"},
      {L"marshal", L"Game.Space.Outer::Managed", no_signature + "Game.Space.Outer::Managed",
       "[icall] no internal-call method for Game.Space.Outer::Managed", L"marshal"},
      {L"marshal", L"no-colons", no_signature + "no-colons", "", L"marshal"},
      {L"marshal", L"Game.Space.Outer::Large", "struct argument of 72 bytes in Game.Space.Outer::Large is too large", "",
       L"marshal"},
  };
  // clang-format on
  for (const auto& c : cases) {
    CAPTURE(utf8(c.probe));
    check_fatal(run_host(std::wstring(c.program) + L" " + in_quotes(guest(c.image)) + L" " + c.probe,
                         {{L"VLM_TRAP_CONTINUE", L"0"}}),
                c.text, c.logged);
  }
}

TEST_CASE("a patch list that is missing or does not fit is refused before the game runs") {
  const std::string name = "GameAssembly.dll (embedded patch)", header("VLMGSP1\0", 8), zeros(8, '\0');
  const std::string no_list = "GameAssembly.dll has no thread-storage patch: build the game with Tessera";
  const auto with_trailer = [](const std::string& list) {
    const std::uint64_t size = list.size();
    return list + std::string(reinterpret_cast<const char*>(&size), 8) + "VLMGSPEM";
  };
  const auto one = [](std::uint32_t site) {
    static constexpr std::byte jump[22] = {}, found[9] = {};
    const PatchEntry entry{site, found, 8, jump};
    return text_of(write_patch_list({&entry, 1}));
  };
  CHECK_EQ(start_patched(with_trailer(header + zeros)).exit_code, 0);  // no sites: nothing to do
  const struct {
    std::string appended, text;
  } cases[] = {{"", no_list},
               {with_trailer("VLMGSP2" + zeros + '\0'), name + " is not a gs patch file"},
               {with_trailer(header + "\2" + zeros.substr(1)), name + " is truncated"},
               {one(0xFFFFFFF0), name + ": bad entry 0"},  // outside the image
               {one(0), "gs patch site 0x0 does not match (found cf fa ed fe, expected 00 00 00 00): " + name +
                            " was made for a different GameAssembly.dylib"}};
  for (const auto& c : cases) check_fatal(start_patched(c.appended), c.text);
}

HOST_PROGRAM(missing_export) {
  load_library(argv[1]);
  library_function<void (*)(int)>("il2cpp_gc_collect")(0);
  return 0;
}

HOST_PROGRAM(endings) {
  CreateDirectoryW(work_folder.c_str(), nullptr);
  return run_suite("endings");
}
