// The loader on real files: placement, protections, the hook arena, and the image's own code running.
#include "macho/load.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "binding/shim_table.h"
#include "host/driver.h"
#include "macho/queries.h"
#include "support/fake_image.h"
#include "support/game_process.h"
#include "support/good_image.h"
#include "support/sysv.h"

using namespace vlm;
using namespace vlm::test;

namespace {

std::string path_of_image() {
  const std::wstring folder = program_folder();
  return std::string(folder.begin(), folder.end()) + "image.dylib";
}

constexpr LoadHooks hooks{lookup_shim, make_missing_symbol, [](const MachImage&) {}};

MachImage* load(std::span<const std::byte> file) {
  REQUIRE(write_file(program_folder() + L"image.dylib",
                     std::string(reinterpret_cast<const char*>(file.data()), file.size())));
  MachImage* const image = macho_load(path_of_image().c_str(), hooks);
  DeleteFileA(path_of_image().c_str());
  return image;
}

DWORD protection_at(std::uint64_t address) {
  MEMORY_BASIC_INFORMATION information{};
  VirtualQuery(reinterpret_cast<const void*>(address), &information, sizeof information);
  return information.State == MEM_COMMIT ? information.Protect : 0;
}

template <class T>
T read(std::uint64_t address) {
  T value;
  std::memcpy(&value, reinterpret_cast<const void*>(address), sizeof value);
  return value;
}

std::vector<std::vector<const void*>> initializer_calls;

/// What the image's initializer jumps to. Leaves changed what System V code may change and Windows code relies on.
SYSV void record_call(std::int32_t argc, void** argv, void** envp, void** apple, void* vars) {
  initializer_calls.push_back({reinterpret_cast<void*>(std::intptr_t{argc}), argv, envp, apple, vars});
  asm volatile("xorl %%esi, %%esi; xorl %%edi, %%edi; pxor %%xmm6, %%xmm6; pxor %%xmm15, %%xmm15" ::
                   : "rsi", "rdi", "xmm6", "xmm15");
}

}  // namespace

TEST_CASE("an image is placed, linked and protected; its hook arena lies behind it") {
  ImageDraft draft = good_draft();
  draft.segments.push_back({"__RWX", 0, 0x1000, VM_PROT_READ | VM_PROT_WRITE | VM_PROT_EXECUTE, {}, {}});
  draft.segments.push_back({"__NONE", 0, 0x1000, 0, {}, {}});
  draft.segments[3].vmaddr = draft.linkedit_vmaddr + 0x1000;
  draft.segments[4].vmaddr = draft.linkedit_vmaddr + 0x2000;
  const Bytes file = build_image(draft);
  MachImage* const image = load(build_universal({{0x0100000C, Bytes(5)}, {CPU_TYPE_X86_64, file}}));
  REQUIRE(image != nullptr);
  CHECK_EQ(image->file_size, file.size());
  CHECK(image->contains(reinterpret_cast<std::uintptr_t>(image->file_data)));  // the tables stay in __LINKEDIT

  const std::uint64_t base = image->base;
  CHECK_EQ(static_cast<std::uint64_t>(image->slide), base - text_vmaddr);
  CHECK_EQ(read<std::uint32_t>(base), MH_MAGIC_64);
  CHECK_EQ(read<std::uint64_t>(base + 0x2000), base + 0x1000);         // rebased
  CHECK_EQ(read<std::uint64_t>(base + 0x2018), text_vmaddr + 0x1003);  // not in the stream
  CHECK_EQ(read<std::uint64_t>(base + 0x3000), 0);                     // beyond the file's part of __DATA
  CHECK_EQ(read<std::uint64_t>(base + 0x2440), 0xFFFFFFFFFFFFFFFC);    // weak "_perhaps", which nobody has, - 4
  CHECK_EQ(read<std::uint64_t>(base + 0x2470), base + 0x1000 - 4);     // own "_game_start"
  CHECK_NE(read<std::uint64_t>(base + 0x2800), text_vmaddr + 0x1100);  // lazy, bound at once

  CHECK_EQ(protection_at(base), PAGE_EXECUTE_READ);
  CHECK_EQ(protection_at(base + 0x4FFF), PAGE_READWRITE);
  CHECK_EQ(protection_at(base + 0x5000), PAGE_READONLY);
  CHECK_EQ(protection_at(base + 0x6000), PAGE_EXECUTE_READWRITE);
  CHECK_EQ(protection_at(base + 0x7000), PAGE_READONLY);

  const HookArena& arena = hook_arenas[hook_arena_count - 1];
  CHECK_EQ(arena.image_base, base);
  CHECK_EQ(arena.image_size, 0x8000);
  CHECK_EQ(arena.arena_start, base + 0x10000);
  CHECK_EQ(arena.used, 0);
  CHECK_EQ(protection_at(arena.arena_start), 0);
  void* const last_page = reinterpret_cast<void*>(arena.arena_start + hook_arena_size - 0x1000);
  CHECK_EQ(VirtualAlloc(last_page, 0x1000, MEM_COMMIT, PAGE_READWRITE), last_page);  // reserved up to its end
}

TEST_CASE("an initializer is called as dyld calls it; a section too small for one runs nothing") {
  ImageDraft draft = good_draft();
  const Bytes jump = Bytes().u8(0xFF).u8(0x25).u32(0x2800 - 0x1006);  // jmp [rip to __DATA + 0x800]
  std::ranges::copy(jump, draft.segments[text_segment].content.begin());
  draft.segments[data_segment].sections = {{"__DATA", "__mod_init_func", data_vmaddr + 0x200, 4},
                                           {"__OTHER", "__mod_init_func", data_vmaddr, 12}};
  draft.linkedit_vmaddr = 0;
  MachImage* const image = load(build_image(draft));
  REQUIRE(image != nullptr);
  const auto target = reinterpret_cast<std::uintptr_t>(&record_call);
  std::memcpy(reinterpret_cast<void*>(image->base + 0x2800), &target, sizeof target);
  CHECK_FALSE(image->contains(reinterpret_cast<std::uintptr_t>(image->file_data)));  // a copy of the tables
  CHECK_EQ(macho_find_export(*image, "_game_start"), image->base + 0x1000);

  macho_run_initializers(*image);
  REQUIRE_EQ(initializer_calls.size(), 1);
  const auto& arguments = initializer_calls[0];
  REQUIRE(arguments[1] != nullptr);
  CHECK_EQ(*static_cast<void* const*>(arguments[1]), nullptr);
  CHECK((arguments == std::vector<const void*>{nullptr, arguments[1], arguments[1], arguments[1], nullptr}));
}
