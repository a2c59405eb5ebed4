// What a name without a row is bound to. Rows and their look-up: every guest, and native.rows.
#include "binding/shim_table.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "abi/entries.h"
#include "abi/stubs.h"

using namespace vlm;

TEST_CASE("a name without a row becomes zeroed data or a trap, by its spelling, however many there are") {
  const auto record_of = [](const void* address) {
    const void* const entry = reinterpret_cast<const void*>(&trap_entry);
    return static_cast<const TrapRecord*>(record_of_stub(address, entry));
  };
  for (const char* name : {"_OBJC_CLASS_$_Unknown", "__ZTI3Foo", "_kCFLocaleX", "__ZNSt3__15ctypeIwE2idE", "X2idE"}) {
    CAPTURE(name);
    const auto* block = static_cast<const std::byte*>(make_missing_symbol("library", name));
    CHECK_EQ(record_of(block), nullptr);
    CHECK(std::all_of(block, block + 512, [](std::byte b) { return b == std::byte{0}; }));
  }
  std::vector<std::string> names = {"2idE", "_OBJC_IVAR_$_Unknown", "__ZT", ""};
  while (names.size() < 2100) names.push_back("_t" + std::to_string(names.size()));  // an arena has room for 2048
  std::vector<const void*> stubs;
  for (const std::string& name : names) stubs.push_back(make_missing_symbol("library", name.c_str()));
  for (std::size_t i = 0; i < names.size(); ++i) {
    const TrapRecord* const record = record_of(stubs[i]);
    REQUIRE(record != nullptr);
    CHECK_EQ(std::string(record->symbol), names[i]);
  }
}
