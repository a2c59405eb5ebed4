// Loading an image, in this order because each step needs the one before:
//   read      the x86_64 slice into a buffer that is kept, and its load commands into the record
//   place     reserve the extent and the hook arena behind it, commit the extent read-write, copy the segments
//   link      rebase, bind, bind the lazy stream; the image is in the list from here on
//   hook      what the caller does to the image, while the text is writable
//   protect   each segment as its initprot says
// A file that is of another kind, or not there, is logged and null; a damaged one ends the process with its name.
#include "macho/load.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "diag/log.h"
#include "macho/commands.h"
#include "macho/fixups.h"
#include "macho/format.h"
#include "support/handles.h"
#include "support/text.h"

namespace vlm {

HookArena hook_arenas[max_hook_arenas];
int hook_arena_count;
SrwLock hook_arena_lock;

namespace {

MachImage* images[max_images];
std::size_t image_count;

constexpr std::uint64_t arena_alignment = 0x10000;

using FileBytes = UniqueHeap<std::byte>;

/// Reads exactly `size` bytes at `offset`, in chunks that every version of Windows takes.
bool read_at(HANDLE file, std::uint64_t offset, std::byte* to, std::uint64_t size) {
  constexpr std::uint64_t chunk = 0x40000000;
  while (size != 0) {
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD read = 0;
    if (!ReadFile(file, to, static_cast<DWORD>(std::min(size, chunk)), &read, &at) || read == 0) return false;
    to += read;
    offset += read;
    size -= read;
  }
  return true;
}

/// A heap block with `size` bytes of the file; null when there is no memory, or not so much file.
FileBytes read_block(HANDLE file, std::uint64_t offset, std::uint64_t size) {
  FileBytes block(static_cast<std::byte*>(std::malloc(size)));
  if (block && !read_at(file, offset, block.get(), size)) block.reset();
  return block;
}

/// The end of a load for a reason the file is to blame for: logged, or fatal when it is damaged.
void turn_away(const ImageFault& why) {
  if (why.damaged) fatal_error("%s", why.text.c_str());
  log_message(0, "%s", why.text.c_str());
}

/// The bytes that become file_data: a thin file goes straight there, of a universal file only its slice is read.
/// Empty after a logged reason.
std::pair<FileBytes, std::uint64_t> read_slice(const char* path) {
  const auto unreadable = [&] {
    log_message(0, "[macho] cannot read %s", path);
    return std::pair<FileBytes, std::uint64_t>();
  };
  const auto host_path = to_host_path(path);
  if (!host_path) return unreadable();
  const UniqueHandle file = own_handle(CreateFileW(host_path.get(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  LARGE_INTEGER length;
  if (!file || !GetFileSizeEx(file.get(), &length) || length.QuadPart == 0) return unreadable();
  const auto file_size = static_cast<std::uint64_t>(length.QuadPart);

  std::uint64_t head_size = std::min<std::uint64_t>(file_size, sizeof(FatHeader));
  FileBytes head = read_block(file.get(), 0, head_size);
  if (!head) return unreadable();
  if (const std::uint64_t table_size = slice_table_size({head.get(), head_size}); table_size > head_size) {
    head_size = std::min(file_size, table_size);
    head = read_block(file.get(), 0, head_size);
    if (!head) return unreadable();
  }
  const auto slice = choose_slice(path, {head.get(), head_size}, file_size);
  if (!slice) {
    turn_away(slice.error());
    return {};
  }
  FileBytes bytes = read_block(file.get(), slice->offset, slice->size);
  if (!bytes) return unreadable();
  return {std::move(bytes), slice->size};
}

/// Reserves the image's extent and the hook arena behind it, and fills the extent with the segments.
void place(MachImage& image) {
  const std::uint64_t extent = image.extent();
  const std::uint64_t rounded = (extent + arena_alignment - 1) & ~(arena_alignment - 1);
  void* const region = VirtualAlloc(nullptr, rounded + hook_arena_size, MEM_RESERVE, PAGE_NOACCESS);
  if (region == nullptr) fatal_error("VirtualAlloc(%zu) failed", static_cast<std::size_t>(extent));
  if (VirtualAlloc(region, extent, MEM_COMMIT, PAGE_READWRITE) == nullptr) fatal_error("Cannot commit Mach image");
  image.base = reinterpret_cast<std::uintptr_t>(region);

  if (hook_arena_count == max_hook_arenas) fatal_error("Too many Mach hook arenas");
  hook_arenas[hook_arena_count++] = {image.base, image.base + rounded, extent, 0};

  image.slide = static_cast<std::int64_t>(image.base - image.vm_min);
  for (int i = 0; i < image.segment_count; ++i) {
    const MachSegment& segment = image.segments[i];
    if (!segment.mapped() || segment.filesize == 0) continue;
    std::memcpy(static_cast<std::byte*>(region) + (segment.vmaddr - image.vm_min), image.file_data + segment.fileoff,
                segment.filesize);
  }
  for (int i = 0; i < image.section_count; ++i) image.sections[i].addr += static_cast<std::uint64_t>(image.slide);
}

void link(const MachImage& image, const LoadHooks& hooks) {
  const std::span memory(reinterpret_cast<std::byte*>(image.base), image.extent());
  const SymbolSources sources{image_list(), hooks.lookup_shim, hooks.make_missing_symbol};
  const auto check = [](const Result<std::uint64_t>& patched) {
    if (!patched) fatal_error("%s", patched.error().text.c_str());
  };
  check(macho_rebase(image, memory));
  check(macho_bind(image, memory, BindStream::binds, sources));
  check(macho_bind(image, memory, BindStream::lazy_binds, sources));
}

DWORD page_protection(std::uint32_t initprot) {
  const bool writable = (initprot & VM_PROT_WRITE) != 0;
  if (initprot & VM_PROT_EXECUTE) return writable ? PAGE_EXECUTE_READWRITE : PAGE_EXECUTE_READ;
  return writable ? PAGE_READWRITE : PAGE_READONLY;
}

void protect(const MachImage& image) {
  for (int i = 0; i < image.segment_count; ++i) {
    const MachSegment& segment = image.segments[i];
    if (!segment.mapped()) continue;
    auto* const start = reinterpret_cast<void*>(segment.vmaddr + static_cast<std::uint64_t>(image.slide));
    DWORD before;
    if (!VirtualProtect(start, segment.vmsize, page_protection(segment.initprot), &before)) {
      fatal_error("cannot protect segment %s of %s (error %lu)", segment.name, image.path, GetLastError());
    }
  }
  FlushInstructionCache(GetCurrentProcess(), reinterpret_cast<void*>(image.base), image.extent());
}

}  // namespace

std::span<MachImage* const> image_list() { return {images, image_count}; }

MachImage* macho_load(const char* path, const LoadHooks& hooks) {
  auto [bytes, size] = read_slice(path);
  if (!bytes) return nullptr;
  UniqueHeap<MachImage> record(static_cast<MachImage*>(std::calloc(1, sizeof(MachImage))));
  if (!record) {
    log_message(0, "[macho] cannot read %s", path);
    return nullptr;
  }
  std::snprintf(record->path, sizeof record->path, "%s", path);
  std::replace(std::begin(record->path), std::end(record->path), '\\', '/');
  record->file_data = bytes.get();
  record->file_size = size;
  if (const auto read = read_commands(*record); !read) {
    turn_away(read.error());
    return nullptr;
  }
  if (image_count == max_images) fatal_error("cannot load %s: %d images are loaded already", path, max_images);

  // Nothing is turned away from here on: the image and its file live until the process ends.
  bytes.release();
  MachImage& image = *record.release();
  place(image);
  images[image_count++] = &image;
  link(image, hooks);
  hooks.before_protection(image);
  protect(image);
  return &image;
}

}  // namespace vlm
