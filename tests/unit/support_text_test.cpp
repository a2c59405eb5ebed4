// Texts and paths between game code and Windows.
#include "support/text.h"

#include <windows.h>
#include <doctest/doctest.h>

#include <random>
#include <string>

#include "objc/ns_string.h"

using namespace vlm;

TEST_CASE("a game path becomes a Windows path; a Windows path behind a macOS prefix wins") {
  static constexpr struct {
    const char* game;
    const wchar_t* host;
  } cases[] = {
      {"C:/Games/Velmora", L"C:\\Games\\Velmora"},
      {"/one/C:/two/d:/three", L"d:\\three"},  // the last one
      {"oneC:/two", L"oneC:\\two"},            // no separator before the letter
      {"セーブ/データ😀.txt", L"セーブ\\データ😀.txt"},
  };
  for (const auto& c : cases) CHECK_EQ(std::wstring(to_host_path(c.game).get()), c.host);
  CHECK_EQ(std::string(from_host_path(L"C:\\セーブ\\a/b").get()), "C:/セーブ/a/b");

  wchar_t wide[] = L"????";
  CHECK((to_host_path("a/ü", wide, 3) == 3 && to_host_path("a/ü", wide, 4) == 3));  // one unit more is needed
  CHECK_EQ(std::wstring(wide), L"a\\ü");
  char narrow[] = "?????";
  CHECK((from_host_path(L"a\\ü", narrow, 4) == 4 && from_host_path(L"a\\ü", narrow, 5) == 4));
  CHECK_EQ(std::string(narrow), "a/ü");
}

TEST_CASE("a text has as many UTF-16 units as Windows makes of it, whatever its bytes are") {
  std::mt19937 random(8);
  for (int i = 0; i < 50'000; ++i) {
    std::string text;  // of bytes that begin, go on or belong to no character
    for (unsigned left = random() % 24; left > 0; --left) {
      text += "az\xc3\xa9\xe3\x83\x9c\xf0\x9f\x98\x80\xbf\xc0\xc1\xe0\xed\xa0\xf4\x90\xf5\xf8\xfe\xff"[random() % 23];
    }
    const int converted = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
    CAPTURE(text);
    REQUIRE_EQ(ns_string_utf16_length(text), static_cast<std::uint64_t>(converted - 1));
  }
}
