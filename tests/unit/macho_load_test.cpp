// The loader on real files: placement, protections, the hook arena, and the image's own code running.
#include "macho/load.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <windows.h>

#include <string>
#include <vector>

#include "macho/queries.h"
#include "support/fake_image.h"
#include "support/good_image.h"
#include "support/sysv.h"
#include "vlm.h"

using namespace vlm;
using namespace vlm::test;

namespace {

/// A file in the temporary folder, deleted again.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::span<const std::byte> bytes) {
    char folder[MAX_PATH], path[MAX_PATH];
    GetTempPathA(sizeof folder, folder);
    GetTempFileNameA(folder, "img", 0, path);
    path_ = path;
    const HANDLE file = CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
  }
  ~TemporaryFile() { DeleteFileA(path_.c_str()); }
  const char* path() const { return path_.c_str(); }

 private:
  std::string path_;
};

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

struct InitializerCall {
  std::int32_t argc;
  void **argv, **envp, **apple;
  void* vars;
  std::uint64_t number;
};
std::vector<InitializerCall> initializer_calls;

/// What the image's initializers jump to, each with its number in the sixth argument. Leaves changed what System V code
/// may change and Windows code relies on.
SYSV void record_call(std::int32_t argc, void** argv, void** envp, void** apple, void* vars, std::uint64_t number) {
  initializer_calls.push_back({argc, argv, envp, apple, vars, number});
  asm volatile("xorl %%esi, %%esi; xorl %%edi, %%edi; pxor %%xmm6, %%xmm6; pxor %%xmm15, %%xmm15" ::
                   : "rsi", "rdi", "xmm6", "xmm15");
}

/// Three initializers at __text, the pointer they jump through at __DATA + 0x800. One section of 4 bytes, one of 28.
ImageDraft draft_with_initializers() {
  ImageDraft draft = good_draft();
  Bytes code;
  for (std::uint32_t number = 1; number <= 3; ++number) {
    code.u8(0x41).u8(0xB9).u32(number);  // mov r9d, number
    const std::uint64_t next = 0x1000 + code.size() + 6;
    code.u8(0xFF).u8(0x25).u32(0x2800 - next).pad_to(16 * number);  // jmp [rip to __DATA + 0x800]
  }
  std::copy(code.begin(), code.end(), draft.segments[text_segment].content.begin());
  SegmentDraft& data = draft.segments[data_segment];
  for (std::size_t i = 0; i < 3; ++i) data.content.put_at(0x100 + 8 * i, text_vmaddr + 0x1000 + 16 * i);
  data.sections = {{"__DATA", "__mod_init_func", data_vmaddr + 0x200, 4},
                   {"__OTHER", "__mod_init_func", data_vmaddr + 0x100, 28}};
  draft.rebase = Bytes().u8(REBASE_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB | data_segment).uleb(0x100);
  draft.rebase.u8(REBASE_OPCODE_DO_REBASE_IMM_TIMES | 3);
  draft.bind.clear();
  draft.lazy_bind.clear();
  return draft;
}

}  // namespace

TEST_CASE("an image is placed, linked and protected; its hook arena lies behind it") {
  ImageDraft draft = good_draft();
  draft.segments.push_back({"__RWX", 0, 0x1000, VM_PROT_READ | VM_PROT_WRITE | VM_PROT_EXECUTE, {}, {}});
  draft.segments.push_back({"__NONE", 0, 0x1000, 0, {}, {}});
  draft.segments[3].vmaddr = draft.linkedit_vmaddr + 0x1000;
  draft.segments[4].vmaddr = draft.linkedit_vmaddr + 0x2000;
  const Bytes file = build_image(draft);
  const TemporaryFile on_disk(build_universal({{0x0100000C, Bytes(5)}, {CPU_TYPE_X86_64, file}}));
  const std::size_t images_before = image_list().size();
  MachImage* const image = macho_load(on_disk.path());
  REQUIRE(image != nullptr);
  REQUIRE_EQ(image_list().size(), images_before + 1);
  CHECK_EQ(image_list().back(), image);

  std::string path = on_disk.path();
  std::ranges::replace(path, '\\', '/');
  CHECK_EQ(std::string(image->path), path);
  CHECK_EQ(image->file_size, file.size());
  CHECK_EQ(std::memcmp(image->file_data, file.data(), file.size()), 0);

  const std::uint64_t base = image->base;
  CHECK_EQ(static_cast<std::uint64_t>(image->slide), base - text_vmaddr);
  CHECK_EQ(macho_find_section(*image, "__DATA", "__data")->addr, base + 0x2010);
  CHECK_EQ(read<std::uint32_t>(base), MH_MAGIC_64);
  CHECK_EQ(read<std::uint64_t>(base + 0x2000), base + 0x1000);         // rebased
  CHECK_EQ(read<std::uint64_t>(base + 0x2018), text_vmaddr + 0x1003);  // not in the stream
  CHECK_EQ(read<std::uint64_t>(base + 0x3000), 0);                     // beyond the file's part of __DATA
  CHECK_EQ(read<std::uint64_t>(base + 0x4FF8), 0);
  CHECK_EQ(read<std::uint64_t>(base + 0x2440), 0xFFFFFFFFFFFFFFFC);    // weak "_perhaps", which nobody has, - 4
  CHECK_EQ(read<std::uint64_t>(base + 0x2470), base + 0x1000 - 4);     // own "_game_start"
  CHECK_NE(read<std::uint64_t>(base + 0x2800), text_vmaddr + 0x1100);  // lazy, bound at once

  CHECK_EQ(protection_at(base), PAGE_EXECUTE_READ);
  CHECK_EQ(protection_at(base + 0x1FFF), PAGE_EXECUTE_READ);
  CHECK_EQ(protection_at(base + 0x2000), PAGE_READWRITE);
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

TEST_CASE("a file that cannot be taken leaves nothing behind") {
  const std::size_t images_before = image_list().size();
  const int arenas_before = hook_arena_count;
  ImageDraft chained = good_draft();
  chained.more_commands = {Bytes().u32(LC_DYLD_CHAINED_FIXUPS).u32(16).u32(0).u32(0)};
  const Bytes files[] = {{}, Bytes().text("text"), build_image(chained), build_universal({{0x0100000C, Bytes(64)}})};
  for (const Bytes& bytes : files) CHECK_EQ(macho_load(TemporaryFile(bytes).path()), nullptr);
  CHECK_EQ(macho_load(""), nullptr);
  CHECK_EQ(macho_load("C:/no/such/file"), nullptr);
  CHECK_EQ(macho_load("C:/windows"), nullptr);
  CHECK_EQ(image_list().size(), images_before);
  CHECK_EQ(hook_arena_count, arenas_before);
}

TEST_CASE("initializers run in order, as dyld calls them; a section too small for one runs nothing") {
  const TemporaryFile file(build_image(draft_with_initializers()));
  MachImage* const image = macho_load(file.path());
  REQUIRE(image != nullptr);
  const auto target = reinterpret_cast<std::uintptr_t>(&record_call);
  std::memcpy(reinterpret_cast<void*>(image->base + 0x2800), &target, sizeof target);

  initializer_calls.clear();
  macho_run_initializers(*image);
  REQUIRE_EQ(initializer_calls.size(), 3);
  for (std::size_t i = 0; i < 3; ++i) {
    const InitializerCall& call = initializer_calls[i];
    CHECK_EQ(call.number, i + 1);
    CHECK_EQ(call.argc, 0);
    CHECK_EQ(call.argv[0], nullptr);
    CHECK_EQ(call.envp, call.argv);
    CHECK_EQ(call.apple, call.argv);
    CHECK_EQ(call.vars, nullptr);
  }
}

TEST_CASE("the exported queries answer for the game image only") {
  REQUIRE_EQ(game_image.load(), nullptr);
  CHECK_EQ(vlm_native_symbol("_game_start"), nullptr);
  CHECK_EQ(vlm_is_mac_address(reinterpret_cast<void*>(FakeImage::base)), 0);

  const FakeImage fake(good_draft());
  game_image = fake.image.get();
  const auto pointer = [](std::uint64_t address) { return reinterpret_cast<void*>(address); };
  CHECK_EQ(vlm_native_symbol("helper"), pointer(FakeImage::base + 0x1100));
  CHECK_EQ(vlm_native_symbol("absent"), nullptr);
  CHECK_EQ(vlm_native_symbol(nullptr), nullptr);
  CHECK_EQ(vlm_is_mac_address(pointer(FakeImage::base)), 1);
  CHECK_EQ(vlm_is_mac_address(pointer(FakeImage::base + fake.image->extent() - 1)), 1);
  CHECK_EQ(vlm_is_mac_address(pointer(FakeImage::base + fake.image->extent())), 0);
  CHECK_EQ(vlm_is_mac_address(nullptr), 0);
  game_image = nullptr;
}
