// The cloud store's file, read and written again.
#include "support/cloud_entries.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

using namespace std::string_view_literals;

TEST_CASE("a cloud file is read leniently and written in one form") {
  static constexpr struct {
    std::string_view read, written;
  } cases[] = {
      {"", ""},
      {"\n\r\n\t\n \nno tab\ns\tone tab\n", ""},
      {"s\tkey\tvalue", "s\tkey\tvalue\n"},
      {"s\tk\tv\r\ni\tn\t1\r\n", "s\tk\tv\ni\tn\t1\n"},
      {"s\tk\tv\r\r\ns\tl\t\r", "s\tk\tv\r\ns\tl\t\n"},
      {"s\tk\ta\tb\n", "s\tk\ta\\tb\n"},  // all behind the second tab is the value
      {R"(s	\t\n\\\x\	a\tb\nc\\d\e\)", "s\t\\t\\n\\\\x\\\\\ta\\tb\\nc\\\\de\\\\\n"},
      {"s\tk\tend\\", "s\tk\tend\\\\\n"},
      {"s\tk\tv\0s\tl\tw\n"sv, "s\tk\tv\n"},
      {"string\tk\tv\ndouble\td\t.5\n", "s\tk\tv\nd\td\t0.5\n"},
      {"x\tk\t42\n\tl\t43\n", "i\tk\t42\ni\tl\t43\n"},
      {"i\ta\t \f+12x\ni\tb\t-\ni\tc\t0x10\n", "i\ta\t12\ni\tb\t0\ni\tc\t0\n"},
      {"i\ta\t9223372036854775808\ni\tb\t-99999999999999999999\n",
       "i\ta\t9223372036854775807\ni\tb\t-9223372036854775808\n"},
      {"d\ta\t0.1\nd\tb\t1e17\nd\tc\t-1e-7z\nd\td\tx\n",
       "d\ta\t0.10000000000000001\nd\tb\t1e+17\nd\tc\t-9.9999999999999995e-08\nd\td\t0\n"},
      {"d\ta\tINF\nd\tb\t-infinity\nd\tc\tnan\nd\td\t0x1p-1074\nd\te\t-0\nd\tf\t1e999\n",
       "d\ta\tinf\nd\tb\t-inf\nd\tc\tnan\nd\td\t4.9406564584124654e-324\nd\te\t-0\nd\tf\tinf\n"},
      {"s\ta\t1\ns\tb\t2\ni\ta\t3\ns\tc\t4\ns\tb\t5\n", "i\ta\t3\ns\tb\t5\ns\tc\t4\n"},
      {"s\t\tempty key\n", "s\t\tempty key\n"},
  };
  for (const auto& c : cases) {
    CAPTURE(c.read);
    CHECK_EQ(vlm::test::file_of(vlm::read_cloud_file(c.read)), c.written);
  }
}
