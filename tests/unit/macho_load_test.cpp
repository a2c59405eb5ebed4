// The loader on a real file: placement, protections, the hook arena.
#include "macho/load.h"

#include <doctest/doctest.h>

#include <windows.h>

#include <string>

#include "binding/shim_table.h"
#include "support/game_process.h"
#include "support/good_image.h"
#include "support/text.h"

using namespace vlm;
using namespace vlm::test;

TEST_CASE("an image is placed, linked and protected; its hook arena lies behind it") {
  ImageDraft draft = good_draft();
  const std::uint64_t behind = draft.linkedit_vmaddr + 0x1000;
  draft.segments.push_back({"__RWX", behind, 0x1000, VM_PROT_READ | VM_PROT_WRITE | VM_PROT_EXECUTE, {}, {}});
  draft.segments.push_back({"__NONE", behind + 0x1000, 0x1000, 0, {}, {}});
  const Bytes file = build_image(draft);
  const Bytes universal = build_universal({{0x0100000C, Bytes(5)}, {CPU_TYPE_X86_64, file}});
  const std::wstring path = program_folder() + L"image.dylib";
  REQUIRE(write_file(path, std::string(reinterpret_cast<const char*>(universal.data()), universal.size())));
  const LoadHooks hooks{lookup_shim, make_missing_symbol, [](const MachImage&) {}};
  MachImage* const image = macho_load(from_host_path(path.c_str()).get(), hooks);
  DeleteFileW(path.c_str());
  REQUIRE(image != nullptr);
  CHECK_EQ(image->file_size, file.size());
  CHECK(image->contains(reinterpret_cast<std::uintptr_t>(image->file_data)));  // the tables stay in __LINKEDIT

  const std::uint64_t base = image->base;
  const std::uint64_t contents[][2] = {{0x2000, base + 0x1000},         // rebased
                                       {0x2018, text_vmaddr + 0x1003},  // not in the stream
                                       {0x3000, 0},                     // beyond the file's part of __DATA
                                       {0x2440, 0xFFFFFFFFFFFFFFFC},    // weak "_perhaps", which nobody has, - 4
                                       {0x2470, base + 0x1000 - 4}};    // own "_game_start"
  for (const auto& [offset, word] : contents) CHECK_EQ(*reinterpret_cast<std::uint64_t*>(base + offset), word);
  CHECK_NE(*reinterpret_cast<std::uint64_t*>(base + 0x2800), text_vmaddr + 0x1100);  // lazy, bound at once
  static constexpr DWORD protections[][2] = {{0, PAGE_EXECUTE_READ},  {0x4FFF, PAGE_READWRITE},
                                             {0x5000, PAGE_READONLY}, {0x6000, PAGE_EXECUTE_READWRITE},
                                             {0x7000, PAGE_READONLY}, {0x10000, 0}};
  for (const auto& [offset, protection] : protections) {
    MEMORY_BASIC_INFORMATION page{};
    VirtualQuery(reinterpret_cast<const void*>(base + offset), &page, sizeof page);
    CHECK_EQ(page.Protect, protection);
  }

  const HookArena& arena = hook_arenas[hook_arena_count - 1];
  CHECK((arena.image_base == base && arena.image_size == 0x8000 && arena.used == 0));
  CHECK_EQ(arena.arena_start, base + 0x10000);
  void* const last_page = reinterpret_cast<void*>(arena.arena_start + hook_arena_size - 0x1000);
  CHECK_EQ(VirtualAlloc(last_page, 0x1000, MEM_COMMIT, PAGE_READWRITE), last_page);  // reserved up to its end
}
