// Rows, their look-up, and what a name without a row is bound to.
#include "binding/shim_table.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "abi/entries.h"
#include "abi/stubs.h"
#include "host/shim_catalogue.h"
#include "run_alone.h"
#include "support/game_process.h"

using namespace vlm;
using namespace vlm::test;

TEST_CASE("alone: the shim table" * doctest::skip()) {
  register_shim_families();
  REQUIRE(lookup_shim("anything", "_malloc") != nullptr);
  REQUIRE(lookup_shim("", "malloc") == nullptr);
  REQUIRE(lookup_shim("", "_mallo") == nullptr);
  REQUIRE(lookup_shim("", "") == nullptr);
  REQUIRE_EQ(lookup_shim("", "_memcpy"), lookup_shim("", "_memmove"));

  // Rows that come later are found too, and a name that comes twice is told.
  static const int first = 0, second = 0;
  static const ShimEntry late[] = {{"_zz_late", shim(&first)}, {"_malloc", shim(&second)}};
  register_shims(late);
  REQUIRE_EQ(lookup_shim("", "_zz_late"), &first);
  const std::string log = read_file(program_folder() + L"PCSaveData\\loader.log");
  REQUIRE(log.find("duplicate shim symbol _malloc\r\n") != std::string::npos);
  REQUIRE_EQ(log.find("duplicate"), log.rfind("duplicate"));
  passed_alone();
}

TEST_CASE("rows are found by their whole name, duplicates are told") { CHECK(run_alone("alone: the shim table")); }

TEST_CASE("alone: a full shim table" * doctest::skip()) {
  static std::vector<std::string> names;
  std::vector<ShimEntry> rows;
  for (int i = 0; i < 4096; ++i) names.push_back("_row" + std::to_string(i));
  for (const std::string& name : names) rows.push_back({name.c_str(), shim(&name)});
  register_shims(rows);
  REQUIRE_EQ(lookup_shim("", "_row4095"), rows[4095].address);
  register_shims({rows.data(), 1});
}

TEST_CASE("a row too many ends the process") {
  const Ending ending =
      run_game_process(program_folder(), L"unit_tests.exe", L"\"--test-case=alone: a full shim table\" --no-skip");
  CHECK_EQ(ending.exit_code, 3);
  CHECK_EQ(ending.box_text, "symbol table full");
}

TEST_CASE("a name without a row becomes zeroed data or a trap, by its spelling") {
  const auto is_trap = [](const void* address) {
    return record_of_stub(address, reinterpret_cast<const void*>(&trap_entry)) != nullptr;
  };
  for (const char* name : {"_OBJC_CLASS_$_Unknown", "_OBJC_METACLASS_$_Unknown", "__objc_empty_cacheX",
                           "___CFConstantStringX", "_kCFLocaleX", "__ZTI3Foo", "__ZTS3Foo", "__ZTV3Foo", "_NSLocaleX",
                           "_GKPlayerDidX", "_NSUbiquitousX", "__ZNSt3__15ctypeIwE2idE", "X2idE"}) {
    CAPTURE(name);
    const auto* block = static_cast<const std::byte*>(make_missing_symbol("library", name));
    CHECK_FALSE(is_trap(block));
    CHECK(std::all_of(block, block + 512, [](std::byte b) { return b == std::byte{0}; }));
    CHECK_NE(block, make_missing_symbol("library", name));
  }
  for (const char* name : {"_unknown", "2idE", "_OBJC_IVAR_$_Unknown", "_CFUnknown", "__ZT", ""}) {
    CAPTURE(name);
    const void* stub = make_missing_symbol("library", name);
    const auto* record =
        static_cast<const TrapRecord*>(record_of_stub(stub, reinterpret_cast<const void*>(&trap_entry)));
    REQUIRE(record != nullptr);
    CHECK_EQ(std::string(record->symbol), name);
    CHECK_EQ(std::string(record->library), "library");
  }
}

TEST_CASE("traps beyond an arena get another one") {
  // An arena of 64 KiB holds 2048 stubs of 32 bytes.
  std::vector<const void*> stubs;
  for (int i = 0; i < 2100; ++i) stubs.push_back(make_missing_symbol("library", ("_t" + std::to_string(i)).c_str()));
  for (int i : {0, 2047, 2048, 2099}) {
    const auto* record =
        static_cast<const TrapRecord*>(record_of_stub(stubs[i], reinterpret_cast<const void*>(&trap_entry)));
    REQUIRE(record != nullptr);
    CHECK_EQ(std::string(record->symbol), "_t" + std::to_string(i));
  }
}
