// How a start ends that cannot go on: message box, log and exit code of the real library, each in its own process.
#include <algorithm>
#include <cstring>
#include <functional>

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

std::wstring start_image;  // start_guest.cpp's image: good, and without thread-storage sites
std::wstring folder;       // of the programs and the library without a patch list
std::wstring work_folder;  // for images and libraries made here; its path does not contain the library's name

std::wstring in_quotes(const std::wstring& text) { return L"\"" + text + L"\""; }
std::wstring guest(const std::wstring& name) { return folder + L"guests\\" + name + L"_guest.dylib"; }
std::string narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

Ending start_with(const std::wstring& image, const std::wstring& probe = L"", const Environment& environment = {}) {
  return run_host(L"guest " + in_quotes(image) + L" " + probe, environment);
}

/// Starts the library in a folder of its own whose GameAssembly.dll ends in `appended` and whose image is `image`.
Ending start_patched(const std::string& appended, const std::string& image) {
  const std::wstring home = work_folder + L"home\\";
  CreateDirectoryW(home.c_str(), nullptr);
  static const std::string library = read_file(folder + L"GameAssembly.dll");
  REQUIRE(write_file(home + L"GameAssembly.dll", library + appended));
  REQUIRE(write_file(home + L"GameAssembly.dylib", image));
  return run_host(in_quotes(home + L"GameAssembly.dylib"), {}, home);
}

std::string patch_list(std::span<const vlm::PatchEntry> entries) {
  const auto bytes = vlm::write_patch_list(entries);
  return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

/// Ended with this message, in which a * stands for anything, and with `logged` among the lines before it.
void check_fatal(const Ending& ending, const std::string& text, const std::string& logged = "") {
  const std::size_t star = std::min(text.find('*'), text.size());
  CAPTURE(text);
  CAPTURE(ending.log);
  CHECK_FALSE(ending.timed_out);
  CHECK_EQ(ending.exit_code, 3);
  CHECK_EQ(ending.box_caption, "Velmora");
  CHECK(ending.box_text.starts_with(text.substr(0, star)));
  CHECK(ending.box_text.ends_with(text.substr(std::min(star + 1, text.size()))));
  if (star == text.size()) CHECK_EQ(ending.box_text, text);
  CHECK(ending.log.find("FATAL: " + ending.box_text + "\r\n") != std::string::npos);
  CHECK(ending.log.find(logged) != std::string::npos);
}

}  // namespace

TEST_CASE("a good image starts, and the log tells the steps in order") {
  const Ending ending = start_with(start_image);
  CHECK_EQ(ending.exit_code, 0);
  CHECK_EQ(ending.box_text, "");
  CHECK(ending.log.starts_with("[    0."));
  std::size_t from = 0;
  for (const char* line : {"GameAssembly.dll loaded on Windows ", "version ", "adopting existing threads", "loading ",
                           "[bind] imports without an implementation, a call ends the game: 1\r\n",
                           "[bind]  _missing_function\r\n", "[macho] ", " accesses to thread storage redirected\r\n",
                           "[api] GameAssembly.dylib does not export _il2cpp_set_config_dir\r\n",
                           "running GameAssembly.dylib initializers\r\n", "GameAssembly.dylib ready\r\n",
                           "il2cpp_init starting\r\n", "il2cpp_init returned 0\r\n"}) {
    CAPTURE(line);
    const std::size_t at = ending.log.find(line, from);
    REQUIRE(at != std::string::npos);
    from = at;
  }
}

TEST_CASE("an image that cannot be taken is named, with the reason in the box or in the log") {
  const std::string good = read_file(start_image);
  std::string endless = good;
  std::memset(endless.data() + 36, 0, 4);  // cmdsize of the first load command
  const std::wstring path = work_folder + L"image.dylib";
  std::string forward = narrow(path);
  std::ranges::replace(forward, '\\', '/');
  const std::string not_loaded = " (copy GameAssembly.dylib from the Mac app's Contents/Frameworks)";
  const struct {
    std::string bytes, text, logged;
  } cases[] = {
      {"", "could not load " + narrow(path) + not_loaded, "[macho] cannot read " + narrow(path) + "\r\n"},
      {"MZ is another format", "could not load " + narrow(path) + not_loaded, "not a 64-bit Mach-O\r\n"},
      {std::string("\xCA\xFE\xBA\xBE\0\0\0\1\1\0\0\x0C\0\0\0\0\0\0\0\x1C\0\0\0\4\0\0\0\0", 28),  // arm64 only
       "could not load " + narrow(path) + not_loaded, "[macho] " + narrow(path) + " has no x86_64 slice\r\n"},
      {endless, forward + " is damaged or not supported: load command 0*", ""},
      {good.substr(0, 40), forward + " is damaged or not supported: *", ""},
  };
  for (const auto& c : cases) {
    REQUIRE(write_file(path, c.bytes));
    check_fatal(start_with(path), c.text, c.logged);
  }
  for (const std::wstring& absent : {work_folder + L"absent.dylib", std::wstring()}) {
    check_fatal(start_with(absent), "could not load " + narrow(absent) + not_loaded, "[macho] cannot read ");
  }
}

TEST_CASE("an image that goes wrong while it is linked or started is named with its fault") {
  const std::wstring path = work_folder + L"damaged.dylib";
  std::string damaged = narrow(path) + " is damaged or not supported: ";
  std::ranges::replace(damaged, '\\', '/');
  const auto at = [](unsigned segment, std::uint64_t offset) {
    return Bytes().u8(0x20 | segment).uleb(offset).u8(0x51);
  };
  const Bytes bind = Bytes().u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).c_string("_s").u8(0x70).uleb(0x10).u8(0x90);
  const struct {
    std::string text;
    std::function<void(ImageDraft&)> change;
  } cases[] = {
      {"bad segment index 9*", [&](ImageDraft& draft) { draft.rebase = at(9, 0); }},
      {"unknown bind opcode 0xd0*", [](ImageDraft& draft) { draft.lazy_bind = Bytes().u8(0xD2); }},
      {damaged + "rebase stream, before offset 4: 1 pointers from 0x2ff9*",
       [&](ImageDraft& draft) { draft.rebase = at(2, 0x2FF9); }},
      {damaged + "lazy-bind stream, before offset 7: 1 pointers from 0x10*",
       [&](ImageDraft& draft) { draft.lazy_bind = bind; }},
      // Behind an initializer that returns at once.
      {damaged + "initializer 1 of section __DATA,__mod_init_func is 0x*",
       [](ImageDraft& draft) { draft.segments[data_segment].content.put_at(8, data_vmaddr); }},
  };
  for (const auto& c : cases) {
    ImageDraft draft = good_draft();
    c.change(draft);
    const Bytes file = build_image(draft);
    REQUIRE(write_file(path, std::string(reinterpret_cast<const char*>(file.data()), file.size())));
    check_fatal(start_with(path), c.text);
  }
}

TEST_CASE("a second game is told so and leaves; the first plays on") {
  const HANDLE mutex = CreateMutexW(nullptr, TRUE, L"Local\\VelmoraPC_SingleInstance");
  REQUIRE(mutex != nullptr);
  const Ending ending = start_with(start_image);
  CloseHandle(mutex);
  CHECK_EQ(ending.exit_code, 0);
  CHECK_EQ(ending.box_caption, "Velmora");
  CHECK_EQ(ending.box_text, "Velmora is already running.");
  CHECK(ending.log.find("adopting") == std::string::npos);
}

TEST_CASE("a call of a missing import ends the game with its name, or is survived on request") {
  check_fatal(start_with(start_image, L"call_missing_function", {{L"VLM_TRAP_CONTINUE", L"0"}}),
              "unimplemented import _missing_function (flat) called");
  const Ending ending = start_with(start_image, L"call_missing_function", {{L"VLM_TRAP_CONTINUE", L"1"}});
  CHECK_EQ(ending.exit_code, 0);  // the four calls returned 0
  const std::string line = "[trap] unimplemented import _missing_function (flat) called; returning 0\r\n";
  int lines = 0;
  for (std::size_t at = 0; (at = ending.log.find(line, at)) != std::string::npos; ++at) ++lines;
  CHECK_EQ(lines, 3);
}

TEST_CASE("the game ends as its code asks") {
  const std::wstring image = guest(L"system");
  CHECK_EQ(start_with(image, L"exit_with_handlers").exit_code, 77);           // newest first, each once
  CHECK_EQ(start_with(image, L"exit_with_too_many_handlers").exit_code, 11);  // 511 of 600, after a first one
  CHECK_EQ(start_with(guest(L"files"), L"exit_with_an_open_stream").exit_code, 5);
  CHECK_EQ(read_file(L"exit.tmp"), "flushed");
  CHECK(DeleteFileW(L"exit.tmp"));
}

TEST_CASE("game code that cannot go on ends the game with the reason") {
  const std::string uncaught = "uncaught C++ exception of type 7Escaped";
  const std::string no_memory = "std::string: no memory for 18446744073709551615 characters";
  // clang-format off
  const struct {
    const wchar_t* image;
    const wchar_t* probe;
    std::string text;         // with a * for anything
    std::string logged = "";  // before it
  } cases[] = {
      {L"system", L"call_abort", "abort() called by game code"},
      {L"system", L"smash_stack", "stack smashing detected in game code"},
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
      {L"uncaught", L"uncaught_in_depth", uncaught + ": the search for a handler stopped after 4096 frames"},
      {L"uncaught", L"leave_once", "a C++ exception of type 7Escaped leaves a dispatch_once function"},
      {L"uncaught", L"escape_noexcept", "std::terminate called"},
      {L"uncaught", L"rethrow_nothing", "__cxa_rethrow with no active exception"},
      {L"uncaught", L"rethrow_null_pointer", "rethrow_exception(nullptr)"},
      {L"uncaught", L"call_personality", "__gxx_personality_v0 called directly"},
      {L"uncaught", L"dwarf_frame", uncaught, "[eh] unsupported unwind encoding 0x04"},
      {L"uncaught", L"bare_frame", uncaught, "[eh] unsupported unwind encoding 0x00000000 at "},
      {L"uncaught", L"seven_registers", uncaught, "[eh] unsupported unwind encoding 0x02021c00 at "},
      {L"uncaught", L"unsupported_pointer", "[eh] unsupported pointer encoding 0x5"},
      {L"uncaught", L"damaged_table", "[eh] the exception table at 0x*is damaged: its call sites leave the image"},
  };
  // clang-format on
  for (const auto& c : cases) {
    CAPTURE(narrow(c.probe));
    check_fatal(start_with(guest(c.image), c.probe), c.text, c.logged);
  }
}

TEST_CASE("an internal call that cannot be made ends the game") {
  static constexpr struct {
    const wchar_t* name;
    const char* logged;
  } cases[] = {{L"Game.Space.Outer/Deep::Half", "[icall] class not found for Game.Space.Outer/Deep::Half"},
               {L"Game.Space.Outer::Managed", "[icall] no internal-call method for Game.Space.Outer::Managed"},
               {L"no-colons", ""},
               {L"Game.Space.Outer::Large", ""}};
  for (const auto& c : cases) {
    const std::string name = narrow(c.name);
    check_fatal(run_host(L"marshal " + in_quotes(guest(L"marshal")) + L" " + c.name),
                name.ends_with("Large") ? "struct argument of 72 bytes in " + name + " is too large"
                                        : "cannot determine the signature of internal call " + name,
                c.logged);
  }
}

TEST_CASE("an export that the image lacks ends the game with its name when it is called") {
  check_fatal(run_host(L"missing_export " + in_quotes(start_image)),
              "il2cpp_gc_collect was called, but GameAssembly.dylib does not export*");
}

TEST_CASE("a patch list that is missing or does not fit is refused before the game runs") {
  const std::string image = read_file(start_image);
  const std::string name = "GameAssembly.dll (embedded patch)";
  const std::string no_list = "GameAssembly.dll has no thread-storage patch: build the game with Tessera";
  const std::string header("VLMGSP1\0", 8);
  const auto with_trailer = [](std::string blob) {
    const std::uint64_t size = blob.size();
    return blob.append(reinterpret_cast<const char*>(&size), 8) + "VLMGSPEM";
  };
  const auto zeros = [](std::size_t n) { return std::string(n, '\0'); };

  CHECK_EQ(start_patched(with_trailer(header + zeros(8)), image).exit_code, 0);  // no sites: nothing to do

  check_fatal(start_patched("", image), no_list);
  check_fatal(start_patched("\xFF\xFF\xFF\x04" + zeros(4) + "VLMGSPEM", image), no_list);
  check_fatal(start_patched(with_trailer("VLMGSP2" + zeros(9)), image), name + " is not a gs patch file");
  check_fatal(start_patched(with_trailer(header + "\2" + zeros(7)), image), name + " is truncated");

  const std::byte jump[22] = {};
  const std::byte found[9] = {};
  const auto one = [&](std::uint32_t site) {
    const vlm::PatchEntry entry{site, found, 8, jump};
    return start_patched(patch_list({&entry, 1}), image);
  };
  check_fatal(one(0xFFFFFFF0), name + ": bad entry 0");  // outside the image
  check_fatal(one(0), "gs patch site 0x0 does not match (found cf fa ed fe, expected 00 00 00 00): " + name +
                          " was made for a different GameAssembly.dylib");
}

HOST_PROGRAM(missing_export) {
  load_library(argv[1]);
  library_function<void (*)(int)>("il2cpp_gc_collect")(0);
  return 0;
}

HOST_PROGRAM(endings) {
  folder = program_folder();
  start_image = guest(L"start");
  work_folder = folder + L"endings\\";
  CreateDirectoryW(work_folder.c_str(), nullptr);
  return run_suite("endings");
}
