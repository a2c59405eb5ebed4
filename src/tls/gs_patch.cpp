#include "tls/gs_patch.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "diag/log.h"
#include "support/text.h"
#include "tls/game_tls.h"
#include "tls/patch_list.h"

namespace vlm {
namespace {

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

/// Executable memory that a jump in the image reaches and that can reach the whole image back: 256 MiB to 1776 MiB
/// away, nearest first, below before above. An image of up to 256 MiB is then in range wherever the block lands.
void* allocate_near(std::uint64_t base, std::uint64_t size) {
  constexpr std::uint64_t nearest = 0x10000000;
  constexpr std::uint64_t step = 0x1000000;
  SYSTEM_INFO system;
  GetSystemInfo(&system);
  const std::uint64_t granularity = system.dwAllocationGranularity;
  for (std::uint64_t k = 0; k < 96; ++k) {
    for (std::uint64_t address : {base - nearest - k * step, base + nearest + k * step}) {
      address -= address % granularity;
      if (address == 0) continue;  // would mean "anywhere"
      void* block =
          VirtualAlloc(reinterpret_cast<void*>(address), size, MEM_RESERVE | MEM_COMMIT, PAGE_EXECUTE_READWRITE);
      if (block != nullptr) return block;
    }
  }
  return nullptr;
}

}  // namespace

PatchBlob gs_patch_read(const wchar_t* path) {
  const UniqueFile file(_wfopen(path, L"rb"));
  if (!file) return {};
  std::byte trailer[gs_patch_trailer_size];
  if (_fseeki64(file.get(), -static_cast<std::int64_t>(sizeof trailer), SEEK_END) != 0) return {};
  if (std::fread(trailer, 1, sizeof trailer, file.get()) != sizeof trailer) return {};
  const auto size = gs_patch_blob_size(trailer);
  if (!size) return {};
  if (_fseeki64(file.get(), -static_cast<std::int64_t>(sizeof trailer + *size), SEEK_END) != 0) return {};
  PatchBlob blob{UniqueHeap<std::byte>(static_cast<std::byte*>(std::malloc(*size))), *size};
  if (!blob.bytes || std::fread(blob.bytes.get(), 1, blob.size, file.get()) != blob.size) return {};
  return blob;
}

PatchBlob gs_patch_read_embedded() { return gs_patch_read(own_module_path().c_str()); }

Result<std::uint32_t> gs_patch_apply_blob(const MachImage& image, std::span<const std::byte> blob, const char* name) {
  const bool expansion = game_tls_expansion != 0;
  const auto size = measure_patch_list(blob, expansion, name);
  if (!size) return std::unexpected(size.error());
  void* block = allocate_near(image.base, *size);
  if (block == nullptr) return fault("no memory near the image for gs trampolines");

  const PatchTarget target = {
      .image = {reinterpret_cast<std::byte*>(image.base), static_cast<std::size_t>(image.extent())},
      .trampolines = {static_cast<std::byte*>(block), static_cast<std::size_t>(*size)},
      .game_storage_offset = &game_storage_offset,
      .expansion = expansion,
  };
  const auto patched = apply_patch_list(blob, target, name);
  FlushInstructionCache(GetCurrentProcess(), nullptr, 0);
  return patched;
}

std::uint32_t gs_patch_apply(const MachImage& image) {
  if (std::strstr(image.path, "GameAssembly") == nullptr) return 0;
  const PatchBlob blob = gs_patch_read_embedded();
  if (!blob.bytes) fatal_error("GameAssembly.dll has no thread-storage patch: build the game with Tessera");
  const auto patched = gs_patch_apply_blob(image, {blob.bytes.get(), blob.size}, "GameAssembly.dll (embedded patch)");
  if (!patched) fatal_error("%s", patched.error().text.c_str());
  return *patched;
}

}  // namespace vlm
