// The cloud store's file, read and written again.
#include "support/cloud_entries.h"

#include <doctest/doctest.h>

using namespace std::string_view_literals;

TEST_CASE("a cloud file is read leniently and written in one form, which proves that it is whole") {
  static constexpr std::string_view cases[][2] = {
      {"\n\r\n", ""},
      {"s\tkey\tvalue", "s\tkey\tvalue\n"},
      {"s\tk\tv\r\ns\tl\t\r\r\n", "s\tk\tv\ns\tl\t\r\n"},
      {"s\tk\ta\tb\n", "s\tk\ta\\tb\n"},  // all behind the second tab is the value
      {R"(s	\t\n\\\x\	a\tb\nc\\d\e\)", "s\t\\t\\n\\\\x\\\\\ta\\tb\\nc\\\\de\\\\\n"},
      {"string\tk\tv\ndouble\td\t.5\nx\tl\t42\n\tm\t43\n", "s\tk\tv\nd\td\t0.5\ni\tl\t42\ni\tm\t43\n"},
      {"i\ta\t \f+12x\ni\tb\t-\ni\tc\t-99999999999999999999\n", "i\ta\t12\ni\tb\t0\ni\tc\t-9223372036854775808\n"},
      {"d\ta\t0.1\nd\tb\t1e17z\nd\tc\tnan\nd\td\t0x1p-1074\nd\te\t-1e999\n",
       "d\ta\t0.10000000000000001\nd\tb\t1e+17\nd\tc\tnan\nd\td\t4.9406564584124654e-324\nd\te\t-inf\n"},
      {"s\ta\t1\ns\tb\t2\ni\ta\t3\ns\tc\t4\ns\tb\t5\n", "i\ta\t3\ns\tb\t5\ns\tc\t4\n"},
  };
  for (const auto& [read, written] : cases) {
    CAPTURE(read);
    const std::string file = vlm::test::file_of(vlm::read_cloud_file(read).entries, 17);
    CHECK(file.starts_with(std::string(written) + "#whole 17 "));
    const vlm::CloudFile again = vlm::read_cloud_file(file);
    CHECK((again.whole && again.save_number == 17 && !again.damaged));
    for (std::size_t i = 0; i < file.size(); ++i) {  // no byte of it may be another one, and none may be missing
      std::string changed = file;
      changed[i] ^= 4;
      CHECK_FALSE((vlm::read_cloud_file(changed).whole || vlm::read_cloud_file(file.substr(0, i)).whole));
    }
  }
  for (const auto damaged : {""sv, "\t\n"sv, "s\tk\tv\ns\tl"sv, "s\tk\tv\n\0"sv})
    CHECK(vlm::read_cloud_file(damaged).damaged);
}
