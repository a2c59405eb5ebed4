// Where the library looks for its patch list. What patched code does is shown by gs_cases_test and storage_test.
#include "tls/gs_patch.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <string>
#include <string_view>

#include "support/game_process.h"

using namespace vlm;
using namespace std::literals;

TEST_CASE("the list is read from the end of a file, or there is none") {
  const std::string trailer = "\4\0\0\0\0\0\0\0VLMGSPEM"s;
  const struct {
    const char* what;
    std::string file;
    bool found;
  } cases[] = {
      {"behind other bytes", "MZ some library, list" + trailer, true},
      {"alone", "list" + trailer, true},
      {"bytes behind it", "list" + trailer + "x", false},
      {"blob longer than the file", "ist" + trailer, false},
      {"shorter than a trailer", trailer.substr(1), false},
      {"empty", "", false},
  };
  const std::wstring path = test::program_folder() + L"patch_list_test.bin";
  for (const auto& c : cases) {
    CAPTURE(c.what);
    REQUIRE(test::write_file(path, c.file));
    const PatchBlob found = gs_patch_read(path.c_str());
    CHECK_EQ(found.bytes != nullptr, c.found);
    if (found.bytes) CHECK(std::string_view(reinterpret_cast<const char*>(found.bytes.get()), found.size) == "list");
  }
  _wremove(path.c_str());
  CHECK(gs_patch_read(path.c_str()).bytes == nullptr);
}
