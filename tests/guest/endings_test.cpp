// How a start ends that cannot go on: message box, log and exit code of the real library, each in its own process.
#define DOCTEST_CONFIG_NO_MULTITHREADING
#define DOCTEST_CONFIG_IMPLEMENT
#include <doctest/doctest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "support/game_process.h"
#include "tls/patch_list.h"

using namespace vlm::test;

namespace {

std::wstring start_image;  // start_guest.cpp's image: good, and without thread-storage sites
std::wstring folder;       // of the programs and the library without a patch list
std::wstring work_folder;  // for images and libraries made here; its path does not contain the library's name

std::wstring in_quotes(const std::wstring& text) { return L"\"" + text + L"\""; }
std::string narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

Ending start_with(const std::wstring& image, const std::wstring& probe = L"", const Environment& environment = {}) {
  return run_game_process(folder, L"guest_driver.exe", in_quotes(image) + L" " + probe, environment);
}

/// Starts the library in a folder of its own whose GameAssembly.dll ends in `appended` and whose image is `image`.
Ending start_patched(const std::string& appended, const std::string& image, const std::wstring& probe = L"") {
  const std::wstring home = work_folder + L"home\\";
  CreateDirectoryW(home.c_str(), nullptr);
  static const std::string library = read_file(folder + L"GameAssembly.dll");
  CopyFileW((folder + L"guest_driver.exe").c_str(), (home + L"guest_driver.exe").c_str(), FALSE);
  REQUIRE(write_file(home + L"GameAssembly.dll", library + appended));
  REQUIRE(write_file(home + L"GameAssembly.dylib", image));
  return run_game_process(home, L"guest_driver.exe", in_quotes(home + L"GameAssembly.dylib") + L" " + probe);
}

std::string patch_list(std::span<const vlm::PatchEntry> entries) {
  const auto bytes = vlm::write_patch_list(entries);
  return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

void check_fatal(const Ending& ending, const std::string& text) {
  CHECK_FALSE(ending.timed_out);
  CHECK_EQ(ending.exit_code, 3);
  CHECK_EQ(ending.box_caption, "Velmora");
  CHECK_EQ(ending.box_text, text);
  CHECK(ending.log.find("FATAL: " + text + "\r\n") != std::string::npos);
}

template <class T>
void put(std::string& bytes, std::size_t offset, T value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
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

TEST_CASE("an image that cannot be taken is named, with the reason in the log") {
  const std::string good = read_file(start_image);
  const auto could_not_load = [](const std::wstring& path) {
    return "could not load " + narrow(path) + " (copy GameAssembly.dylib from the Mac app's Contents/Frameworks)";
  };
  const std::wstring absent = work_folder + L"absent.dylib";
  Ending ending = start_with(absent);
  check_fatal(ending, could_not_load(absent));
  CHECK(ending.log.find("[macho] cannot read " + narrow(absent)) != std::string::npos);
  check_fatal(start_with(L""), could_not_load(L""));

  struct Case {
    const char* name;
    std::string bytes;
    std::string logged;
  };
  const std::wstring path = work_folder + L"image.dylib";
  const Case cases[] = {
      {"empty file", "", "[macho] cannot read " + narrow(path)},
      {"not Mach-O", "MZ is another format", "not a 64-bit Mach-O"},
      {"arm64 only", std::string("\xCA\xFE\xBA\xBE\0\0\0\1\1\0\0\x0C\0\0\0\0\0\0\0\x1C\0\0\0\4\0\0\0\0", 28),
       "[macho] " + narrow(path) + " has no x86_64 slice"},
  };
  for (const Case& c : cases) {
    CAPTURE(c.name);
    REQUIRE(write_file(path, c.bytes));
    ending = start_with(path);
    check_fatal(ending, could_not_load(path));
    CHECK(ending.log.find(c.logged + "\r\n") != std::string::npos);
  }
}

TEST_CASE("a damaged image is named with its fault") {
  const std::string good = read_file(start_image);
  const std::wstring path = work_folder + L"damaged.dylib";
  std::string damaged = narrow(path) + " is damaged or not supported: ";
  std::ranges::replace(damaged, '\\', '/');
  std::string bytes = good;
  put(bytes, 36, 0u);  // cmdsize of the first load command
  REQUIRE(write_file(path, bytes));
  Ending ending = start_with(path);
  CHECK_EQ(ending.exit_code, 3);
  CHECK(ending.box_text.starts_with(damaged + "load command 0"));

  REQUIRE(write_file(path, good.substr(0, 40)));
  ending = start_with(path);
  CHECK_EQ(ending.exit_code, 3);
  CHECK(ending.box_text.starts_with(damaged));
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
  for (const wchar_t* off : {L"", L"0", L"yes"}) {
    check_fatal(start_with(start_image, L"call_missing_function", {{L"VLM_TRAP_CONTINUE", off}}),
                "unimplemented import _missing_function (flat) called");
  }
  const Ending ending = start_with(start_image, L"call_missing_function", {{L"VLM_TRAP_CONTINUE", L"1"}});
  CHECK_EQ(ending.exit_code, 0);  // the four calls returned 0
  const std::string line = "[trap] unimplemented import _missing_function (flat) called; returning 0\r\n";
  int lines = 0;
  for (std::size_t at = 0; (at = ending.log.find(line, at)) != std::string::npos; ++at) ++lines;
  CHECK_EQ(lines, 3);
}

TEST_CASE("the game ends as its code asks") {
  const std::wstring image = folder + L"guests\\system_guest.dylib";
  check_fatal(start_with(image, L"call_abort"), "abort() called by game code");
  check_fatal(start_with(image, L"smash_stack"), "stack smashing detected in game code");
  CHECK_EQ(start_with(image, L"exit_with_handlers").exit_code, 77);            // newest first, each once
  CHECK_EQ(start_with(image, L"exit_with_too_many_handlers").exit_code, 11);  // 511 of 600, after a first one
  CHECK_EQ(start_with(folder + L"guests\\files_guest.dylib", L"exit_with_an_open_stream").exit_code, 5);
  CHECK_EQ(read_file(L"exit.tmp"), "flushed");
  CHECK(DeleteFileW(L"exit.tmp"));
}

TEST_CASE("C++ code that cannot go on ends the game with the reason") {
  const std::wstring runtime = folder + L"guests\\cxx_runtime_guest.dylib";
  const std::wstring strings = folder + L"guests\\cxx_strings_guest.dylib";
  const struct {
    const std::wstring& image;
    const wchar_t* probe;
    const char* text;
  } cases[] = {
      {runtime, L"new_without_memory", "operator new(1152921504606846976) failed"},
      {runtime, L"call_pure_virtual", "pure virtual function called"},
      {runtime, L"call_terminate", "std::terminate called"},
      {runtime, L"initialize_within_itself", "the initializer of a static variable waits for itself"},
      {strings, L"insert_out_of_range", "basic_string::insert out of range"},
      {strings, L"insert_before_the_string", "basic_string::insert out of range"},
      {strings, L"append_without_memory", "std::string: no memory for 1152921504606846978 characters"},
      {strings, L"append_more_than_there_are_addresses", "std::string: no memory for 18446744073709551615 characters"},
      {strings, L"reserve_everything", "std::string: no memory for 18446744073709551615 characters"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.text);
    check_fatal(start_with(c.image, c.probe), c.text);
  }
}

TEST_CASE("an exception that cannot be caught ends the game") {
  const std::string uncaught = "uncaught C++ exception of type 7Escaped";
  const struct {
    const wchar_t* probe;
    std::string text;
    std::string logged;  // before it
  } cases[] = {
      {L"uncaught_class", uncaught, ""},
      {L"uncaught_number", "uncaught C++ exception of type ?", "[eh] the exception's type is the import __ZTIi"},
      {L"uncaught_in_thread", uncaught, ""},
      {L"uncaught_in_depth", uncaught, ""},  // the handler lies too many frames above
      {L"escape_noexcept", "std::terminate called", ""},
      {L"rethrow_nothing", "__cxa_rethrow with no active exception", ""},
      {L"rethrow_null_pointer", "rethrow_exception(nullptr)", ""},
      {L"call_personality", "__gxx_personality_v0 called directly", ""},
      {L"dwarf_frame", uncaught, "[eh] unsupported unwind encoding 0x04"},
      {L"bare_frame", uncaught, "[eh] unsupported unwind encoding 0x00000000 at "},
      {L"seven_registers", uncaught, "[eh] unsupported unwind encoding 0x02021c00 at "},
      {L"unsupported_pointer", "[eh] unsupported pointer encoding 0x5", ""},
  };
  const std::wstring image = folder + L"guests\\uncaught_guest.dylib";
  for (const auto& c : cases) {
    const Ending ending = start_with(image, c.probe);
    CAPTURE(ending.log);
    check_fatal(ending, c.text);
    CHECK(ending.log.find(c.logged) != std::string::npos);
  }
  const Ending ending = start_with(image, L"damaged_table");
  CHECK_EQ(ending.exit_code, 3);
  CHECK(ending.box_text.starts_with("[eh] the exception table at 0x"));
  CHECK(ending.box_text.ends_with(" is damaged: its call sites leave the image"));
}

TEST_CASE("a collection that is used wrongly ends the game") {
  const std::wstring image = folder + L"guests\\foundation_values_guest.dylib";
  check_fatal(start_with(image, L"read_past_the_end"), "NSArray index 2 out of range (2)");
  const Ending ending = start_with(image, L"change_while_looping");
  CHECK_EQ(ending.exit_code, 3);
  CHECK(ending.box_text.starts_with("collection "));
  CHECK(ending.box_text.ends_with(" mutated during enumeration"));
}

TEST_CASE("an export that the image lacks ends the game with its name when it is called") {
  const Ending ending = run_game_process(folder, L"missing_export.exe", in_quotes(start_image));
  CHECK_EQ(ending.exit_code, 3);
  CHECK(ending.box_text.starts_with("il2cpp_gc_collect was called, but GameAssembly.dylib does not export"));
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
  check_fatal(start_patched(zeros(8) + "VLMGSPEM", image), no_list);
  check_fatal(start_patched("\xFF\xFF\xFF\x04" + zeros(4) + "VLMGSPEM", image), no_list);
  check_fatal(start_patched(with_trailer("VLMGSP2" + zeros(9)), image), name + " is not a gs patch file");
  check_fatal(start_patched(with_trailer(header + "\2" + zeros(7)), image), name + " is truncated");
  check_fatal(start_patched(with_trailer(header + "\xFF\xFF\xFF\xFF" + zeros(4)), image), name + " is truncated");

  const std::byte jump[22] = {};
  const std::byte found[9] = {};
  const auto one = [&](std::uint32_t site, std::span<const std::byte> expected, std::uint16_t slot,
                       std::span<const std::byte> trampoline) {
    const vlm::PatchEntry entry{site, expected, slot, trampoline};
    return start_patched(patch_list({&entry, 1}), image);
  };
  check_fatal(one(0, std::span(found).first(4), 0, jump), name + ": bad entry 0");
  check_fatal(one(0, found, 0, std::span(jump).first(13)), name + ": bad entry 0");
  check_fatal(one(0, found, 15, jump), name + ": bad entry 0");
  check_fatal(one(0xFFFFFFF0, found, 8, jump), name + ": bad entry 0");  // outside the image
  check_fatal(one(0, found, 8, jump),
              "gs patch site 0x0 does not match (found cf fa ed fe, expected 00 00 00 00): " + name +
                  " was made for a different GameAssembly.dylib");
}

TEST_CASE("whatever is changed in an image, it starts or ends with a message") {
  const std::string good = read_file(start_image);
  const std::wstring path = work_folder + L"mutated.dylib";
  std::mt19937 random(20);
  std::uint32_t commands_size;
  std::memcpy(&commands_size, good.data() + 20, 4);
  // The last segment holds the opcode streams, the export trie and the symbols.
  const std::size_t link_edit = good.size() > 4096 ? good.size() - 4096 : 0;
  int started = 0, refused = 0;
  const auto run = [&](const std::string& bytes) {
    REQUIRE(write_file(path, bytes));
    const Ending ending = start_with(path);
    CAPTURE(ending.box_text);
    CHECK_FALSE(ending.timed_out);
    CHECK((ending.exit_code == 3 || ending.exit_code == 0 || ending.exit_code == 1));  // 1: the guest's own checks
    ++(ending.exit_code == 3 ? refused : started);
  };
  for (int i = 0; i < 24; ++i) {
    std::string bytes = good;
    const std::size_t at = 32 + random() % commands_size;
    bytes[at] = static_cast<char>(bytes[at] ^ (1 << random() % 8));
    CAPTURE(at);
    run(bytes);
  }
  for (int i = 0; i < 12; ++i) {
    CAPTURE(i);
    run(good.substr(0, random() % good.size()));
  }
  for (int i = 0; i < 12; ++i) {
    std::string bytes = good;
    const std::size_t at = link_edit + random() % (good.size() - link_edit);
    bytes[at] = static_cast<char>(random());
    CAPTURE(at);
    run(bytes);
  }
  MESSAGE("images: " << started << " started, " << refused << " refused");
}

TEST_CASE("whatever is changed in a patch list, the game starts or ends with a message") {
  // The library and the image of the storage tests: every field of the list is changed, but no trampoline code, which
  // only its own maker can vouch for.
  const std::string image = read_file(folder + L"storage\\GameAssembly.dylib");
  const std::string library = read_file(folder + L"storage\\GameAssembly.dll");
  const std::string plain = read_file(folder + L"GameAssembly.dll");
  REQUIRE(library.starts_with(plain));
  const std::string list = library.substr(plain.size());
  const auto blob = std::as_bytes(std::span(list)).first(list.size() - vlm::gs_patch_trailer_size);
  std::vector<std::size_t> fields;
  for (std::size_t at = 0; at < 16; ++at) fields.push_back(at);
  for (std::size_t at = blob.size(); at < list.size(); ++at) fields.push_back(at);
  vlm::PatchListReader reader(blob);
  for (std::uint32_t i = 0; i < reader.count(); ++i) {
    const auto entry = reader.next();
    REQUIRE(entry);
    const std::size_t expected = entry->expected.data() - blob.data();
    const std::size_t trampoline = entry->trampoline.data() - blob.data();
    for (std::size_t at = expected - 5; at < trampoline; ++at) fields.push_back(at);
  }
  std::mt19937 random(21);
  int refused = 0;
  for (int i = 0; i < 32; ++i) {
    std::string bytes = list;
    const std::size_t at = fields[random() % fields.size()];
    bytes[at] = static_cast<char>(bytes[at] + 1 + random() % 255);
    if (i % 8 == 7) bytes = list.substr(random() % list.size());  // the front is missing
    CAPTURE(at);
    const Ending ending = start_patched(bytes, image, L"do_nothing");
    CAPTURE(ending.box_text);
    CHECK_FALSE(ending.timed_out);
    CHECK((ending.exit_code == 3 || ending.exit_code == 0));
    refused += ending.exit_code == 3;
  }
  MESSAGE("patch lists: " << refused << " of 32 refused");
}

int main(int argc, char** argv) {
  folder = program_folder();
  start_image = folder + L"guests\\start_guest.dylib";
  work_folder = folder + L"endings\\";
  CreateDirectoryW(work_folder.c_str(), nullptr);
  doctest::Context context(argc, argv);
  return context.run();
}
