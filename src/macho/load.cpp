// Loading an image, in this order because each step needs the one before:
//   commands  choose the x86_64 slice, read its load commands, check them against the file
//   place     reserve the extent and the hook arena behind it, commit the extent read-write, read the segments there
//   tables    stay in the memory of __LINKEDIT; an image that has them elsewhere gets a copy of them
//   link      rebase, bind, bind the lazy stream; the image is in the list from here on
//   hook      what the caller does to the image, while the text is writable
//   protect   each segment as its initprot says
// A file that is not there or of another kind is logged, and the answer is null. A damaged file ends the process with a
// message that names it.
#include "macho/load.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
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

/// A heap block with `size` bytes of the file; null when there is not enough memory, or the file is shorter.
FileBytes read_block(HANDLE file, std::uint64_t offset, std::uint64_t size) {
  FileBytes block(static_cast<std::byte*>(std::malloc(size)));
  if (block && !read_at(file, offset, block.get(), size)) block.reset();
  return block;
}

/// Ends a load that failed because of the file: a log line, or a fatal error when the file is damaged.
void turn_away(const ImageFault& why) {
  if (why.damaged) fatal_error("%s", why.text.c_str());
  log_message(0, "%s", why.text.c_str());
}

/// What shows that a file was written to. While it is open here nobody can on Windows; on a disk that another system
/// lends, anybody can.
struct FileState {
  std::uint64_t size;
  std::uint64_t written;
  bool operator==(const FileState&) const = default;
};

std::optional<FileState> state_of(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION is;
  if (!GetFileInformationByHandle(file, &is)) return std::nullopt;
  const auto both = [](DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; };
  return FileState{both(is.nFileSizeHigh, is.nFileSizeLow),
                   both(is.ftLastWriteTime.dwHighDateTime, is.ftLastWriteTime.dwLowDateTime)};
}

/// An image's file, open until everything was read.
struct ImageFile {
  UniqueHandle handle;
  FileState state;
  FileRange slice;
};

/// Opens the file and chooses its slice.
std::expected<ImageFile, ImageFault> open_image(const char* path) {
  const std::unexpected unreadable(ImageFault{"[macho] cannot read " + std::string(path), false});
  const auto host_path = to_host_path(path);
  if (!host_path) return unreadable;
  UniqueHandle file = own_handle(CreateFileW(host_path.get(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                             FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return unreadable;
  const auto state = state_of(file.get());
  if (!state || state->size == 0) return unreadable;

  std::uint64_t head_size = std::min<std::uint64_t>(state->size, sizeof(FatHeader));
  FileBytes head = read_block(file.get(), 0, head_size);
  if (!head) return unreadable;
  if (const std::uint64_t table_size = macho_slice_table_size({head.get(), head_size}); table_size > head_size) {
    head_size = std::min(state->size, table_size);
    head = read_block(file.get(), 0, head_size);
    if (!head) return unreadable;
  }
  const auto slice = macho_choose_slice(path, {head.get(), head_size}, state->size);
  if (!slice) return std::unexpected(slice.error());
  return ImageFile{std::move(file), *state, *slice};
}

/// The slice's header and load commands.
FileBytes read_start(const ImageFile& file, std::uint64_t& size) {
  FileBytes start;
  std::uint64_t wanted = 0x4000;  // enough for most
  do {
    size = std::min(file.slice.size, std::max(wanted, 2 * size));
    start = read_block(file.handle.get(), file.slice.offset, size);
    if (!start) return start;
    wanted = macho_commands_size({start.get(), size});
  } while (wanted > size && size < file.slice.size);
  return start;
}

struct RegionReleaser {
  void operator()(void* region) const noexcept { VirtualFree(region, 0, MEM_RELEASE); }
};
/// Reserved memory.
using Region = std::unique_ptr<void, RegionReleaser>;

std::uint64_t rounded_extent(const MachImage& image) {
  return (image.extent() + arena_alignment - 1) & ~(arena_alignment - 1);
}

/// Reserves the image's extent and the hook arena behind it, and commits the extent.
Region reserve(const MachImage& image) {
  const std::uint64_t extent = image.extent();
  Region region(VirtualAlloc(nullptr, rounded_extent(image) + hook_arena_size, MEM_RESERVE, PAGE_NOACCESS));
  if (!region) fatal_error("VirtualAlloc(%zu) failed", static_cast<std::size_t>(extent));
  const bool committed = VirtualAlloc(region.get(), extent, MEM_COMMIT, PAGE_READWRITE) != nullptr;
  if (!committed) fatal_error("Cannot commit Mach image");
  return region;
}

/// Reads the segments to their places, and the tables to file_data where they do not lie in one of those. False when
/// the file cannot be read, or is not what it was when it was opened.
bool read_contents(const ImageFile& file, MachImage& image, std::byte* memory) {
  for (int i = 0; i < image.segment_count; ++i) {
    const MachSegment& segment = image.segments[i];
    if (!segment.mapped() || segment.filesize == 0) continue;
    if (!read_at(file.handle.get(), file.slice.offset + segment.fileoff, memory + (segment.vmaddr - image.vm_min),
                 segment.filesize)) {
      return false;
    }
  }
  const FileRange tables = macho_tables_range(image);
  FileBytes copy;
  image.file_start = tables.offset;
  if (const MachSegment* const segment = macho_segment_of_tables(image)) {
    image.file_data = memory + (segment->vmaddr - image.vm_min) + (tables.offset - segment->fileoff);
  } else if (tables.size != 0) {
    copy = read_block(file.handle.get(), file.slice.offset + tables.offset, tables.size);
    if (!copy) return false;
    image.file_data = copy.get();
  }
  if (state_of(file.handle.get()) != file.state) return false;
  copy.release();  // the image's
  return true;
}

/// The image stands in its memory, at the start of a region that it keeps.
void settle(MachImage& image, void* region) {
  image.base = reinterpret_cast<std::uintptr_t>(region);
  if (hook_arena_count == max_hook_arenas) fatal_error("Too many Mach hook arenas");
  hook_arenas[hook_arena_count++] = {image.base, image.base + rounded_extent(image), image.extent(), 0};
  image.slide = static_cast<std::int64_t>(image.base - image.vm_min);
  for (int i = 0; i < image.section_count; ++i) image.sections[i].addr += static_cast<std::uint64_t>(image.slide);
}

void link(const MachImage& image, const LoadHooks& hooks) {
  const std::span memory(reinterpret_cast<std::byte*>(image.base), image.extent());
  const SymbolSources sources{macho_images(), hooks.lookup_shim, hooks.make_missing_symbol};
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

std::span<MachImage* const> macho_images() { return {images, image_count}; }

MachImage* macho_load(const char* path, const LoadHooks& hooks) {
  const auto unreadable = [&] {
    log_message(0, "[macho] cannot read %s", path);
    return nullptr;
  };
  const auto file = open_image(path);
  if (!file) {
    turn_away(file.error());
    return nullptr;
  }
  std::uint64_t start_size = 0;
  FileBytes start = read_start(*file, start_size);
  UniqueHeap<MachImage> record(static_cast<MachImage*>(std::calloc(1, sizeof(MachImage))));
  if (!start || !record) return unreadable();
  std::snprintf(record->path, sizeof record->path, "%s", path);
  std::replace(std::begin(record->path), std::end(record->path), '\\', '/');
  record->file_size = file->slice.size;
  if (const auto read = macho_read_commands(*record, {start.get(), start_size}); !read) {
    turn_away(read.error());
    return nullptr;
  }
  if (image_count == max_images) fatal_error("cannot load %s: %d images are loaded already", path, max_images);
  Region region = reserve(*record);
  if (!read_contents(*file, *record, static_cast<std::byte*>(region.get()))) return unreadable();

  // Nothing is turned away from here on: the image, its memory and its load commands live until the process ends.
  start.release();
  MachImage& image = *record.release();
  settle(image, region.release());
  images[image_count++] = &image;
  link(image, hooks);
  hooks.before_protection(image);
  protect(image);
  return &image;
}

}  // namespace vlm
