// Images whose damage shows only while the real library links or runs them: each ends the game with a message that
// says what is wrong, before any damage is done.
#include <doctest/doctest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "support/game_process.h"
#include "support/good_image.h"
#include "support/host_program.h"

using namespace vlm;
using namespace vlm::test;

HOST_SUITE(damaged_images)

namespace {

Ending start_with(const ImageDraft& draft, const std::wstring& path) {
  const Bytes file = build_image(draft);
  REQUIRE(write_file(path, std::string(reinterpret_cast<const char*>(file.data()), file.size())));
  return run_host(L"\"" + path + L"\"");
}

}  // namespace

TEST_CASE("an image that goes wrong while it is linked or started ends the game with its name and fault") {
  wchar_t folder[MAX_PATH];
  GetTempPathW(MAX_PATH, folder);
  const std::wstring path = std::wstring(folder) + L"damaged.dylib";
  std::string damaged = std::string(path.begin(), path.end()) + " is damaged or not supported: ";
  std::ranges::replace(damaged, '\\', '/');

  const auto fixup = [](Bytes ImageDraft::* stream, unsigned segment, std::uint64_t offset) {
    return [=](ImageDraft& draft) {
      draft.*stream = Bytes().u8(BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM).c_string("_s");
      if (stream == &ImageDraft::rebase) (draft.*stream).clear();
      (draft.*stream).u8((stream == &ImageDraft::rebase ? 0x20 : 0x70) | segment).uleb(offset);
      (draft.*stream).u8(stream == &ImageDraft::rebase ? 0x51 : 0x90);
    };
  };
  const struct {
    std::string text;
    std::function<void(ImageDraft&)> change;
  } cases[] = {
      {"bad segment index 9", fixup(&ImageDraft::rebase, 9, 0)},
      {"unknown rebase opcode 0xf0", [](ImageDraft& draft) { draft.rebase = Bytes().u8(0xF3); }},
      {"unknown bind opcode 0xd0", [](ImageDraft& draft) { draft.lazy_bind = Bytes().u8(0xD2); }},
      {damaged + "rebase stream, before offset 4: 1 pointers from 0x2ff9", fixup(&ImageDraft::rebase, 2, 0x2FF9)},
      {damaged + "lazy-bind stream, before offset 7: 1 pointers from 0x10", fixup(&ImageDraft::lazy_bind, 0, 0x10)},
      {damaged + "initializer 1 of section __DATA,__mod_init_func is 0x",
       [](ImageDraft& draft) {
         draft.segments[data_segment].content.put_at(8, data_vmaddr);  // after one that returns at once
       }},
  };
  for (const auto& c : cases) {
    CAPTURE(c.text);
    ImageDraft draft = good_draft();
    c.change(draft);
    const Ending ending = start_with(draft, path);
    CHECK_FALSE(ending.timed_out);
    CHECK_EQ(ending.exit_code, 3);
    CAPTURE(ending.box_text);
    CHECK(ending.box_text.starts_with(c.text));
    CHECK(ending.log.find("FATAL: " + c.text) != std::string::npos);
  }
  DeleteFileW(path.c_str());
}
