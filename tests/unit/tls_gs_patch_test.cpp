// The thread-storage patch on real code: what a patched function reads, in both TLS modes, and reading the list.
#include "tls/gs_patch.h"

#define DOCTEST_CONFIG_NO_MULTITHREADING
#include <doctest/doctest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "game_tls_mode.h"
#include "support/sysv.h"
#include "tls/game_tls.h"
#include "tls/patch_list.h"

using namespace vlm;
using namespace std::literals;

namespace {

std::span<const std::byte> bytes(std::string_view text) { return std::as_bytes(std::span(text)); }

/// uint64 f(uint64 x): slot 7 of the thread's storage plus x, with x in the red zone and a value in rcx meanwhile.
constexpr auto code =
    "\x48\x89\x7C\x24\xF8"                  // mov [rsp-8], rdi
    "\x48\xC7\xC1\x05\x00\x00\x00"          // mov rcx, 5
    "\x48\xC7\xC0\x07\x00\x00\x00"          // mov rax, 7
    "\x65\x48\x8B\x04\xC5\x00\x00\x00\x00"  // mov rax, gs:[rax*8]
    "\x48\x03\x44\x24\xF8"                  // add rax, [rsp-8]
    "\x48\x01\xC8"                          // add rax, rcx
    "\xC3"sv;
constexpr std::uint32_t site = 19;
constexpr auto through_rcx =
    "\x48\x8D\x64\x24\x80\x51\x48\xB9" "SLOTSLOT" "\x48\x8B\x09" "\x65\x48\x8B\x09"
    "\x48\x8B\x04\xC1\x59\x48\x8D\xA4\x24\x80\x00\x00\x00\xFF\x25\x00\x00\x00\x00" "RETURNTO"sv;

/// An image of one page that holds the code.
struct OnePageImage {
  MachImage image = {};
  OnePageImage() {
    void* page = VirtualAlloc(nullptr, 0x1000, MEM_RESERVE | MEM_COMMIT, PAGE_EXECUTE_READWRITE);
    REQUIRE(page != nullptr);
    std::memcpy(page, code.data(), code.size());
    image.base = reinterpret_cast<std::uint64_t>(page);
    image.vm_end = 0x1000;
  }
  ~OnePageImage() { VirtualFree(reinterpret_cast<void*>(image.base), 0, MEM_RELEASE); }
  std::uint64_t call(std::uint64_t x) const {
    return reinterpret_cast<SYSV std::uint64_t (*)(std::uint64_t)>(image.base)(x);
  }
};

std::vector<std::byte> good_list() {
  const PatchEntry entry = {site, bytes(code.substr(site, 9)), 8, bytes(through_rcx)};
  return write_patch_list({&entry, 1});
}

void patch_and_run() {
  const OnePageImage page;
  const auto list = good_list();
  const auto patched = gs_patch_apply_blob(page.image, std::span(list).first(list.size() - 16), "LIST");
  REQUIRE(patched.value() == 1);

  std::int32_t displacement;
  std::memcpy(&displacement, reinterpret_cast<void*>(page.image.base + site + 1), sizeof displacement);
  const std::int64_t distance = std::int64_t{site} + 5 + displacement;
  CHECK((distance <= -0x10000000 + 0x10000 || distance >= 0x10000000 - 0x10000));

  ThreadRecord record = {}, other_record = {};
  record.storage[7] = reinterpret_cast<void*>(1000);
  other_record.storage[7] = reinterpret_cast<void*>(2000);
  game_tls_set(&record);
  CHECK_EQ(page.call(20), 1025);
  game_tls_set(&other_record);
  CHECK_EQ(page.call(20), 2025);
}

}  // namespace

TEST_CASE("a patched access reads the calling thread's storage and disturbs nothing else") {
  {
    const ScopedTlsMode mode(TlsMode::normal);
    patch_and_run();
  }
  {
    const ScopedTlsMode mode(TlsMode::expansion);
    patch_and_run();
  }
}

TEST_CASE("an image of another name is left alone, without a look at the library's file") {
  OnePageImage page;
  std::strcpy(page.image.path, "C:/Games/UnityPlayer.dylib");
  CHECK_EQ(gs_patch_apply(page.image), 0);
  CHECK_EQ(std::memcmp(reinterpret_cast<void*>(page.image.base), code.data(), code.size()), 0);
}

TEST_CASE("the list is read from the end of a file, or there is none") {
  const auto list = good_list();
  const std::string whole(reinterpret_cast<const char*>(list.data()), list.size());
  const std::string trailer = whole.substr(whole.size() - 16);
  const std::string blob = whole.substr(0, whole.size() - 16);
  const struct {
    const char* what;
    std::string file;
    bool found;
  } cases[] = {
      {"behind other bytes", "MZ some library" + whole, true},
      {"alone", whole, true},
      {"bytes behind it", whole + "x", false},
      {"blob longer than the file", trailer, false},
      {"shorter than a trailer", trailer.substr(1), false},
      {"empty", "", false},
  };
  wchar_t path[MAX_PATH];
  GetTempPathW(MAX_PATH, path);
  wcscat(path, L"vlm_patch_list_test.bin");
  for (const auto& c : cases) {
    CAPTURE(c.what);
    FILE* file = _wfopen(path, L"wb");
    REQUIRE(file != nullptr);
    std::fwrite(c.file.data(), 1, c.file.size(), file);
    std::fclose(file);
    const PatchBlob found = gs_patch_read(path);
    CHECK_EQ(found.bytes != nullptr, c.found);
    if (found.bytes) CHECK(std::string_view(reinterpret_cast<const char*>(found.bytes.get()), found.size) == blob);
  }
  _wremove(path);
  CHECK(gs_patch_read(path).bytes == nullptr);
}
