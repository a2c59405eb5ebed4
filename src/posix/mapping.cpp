// Mapped files and anonymous memory. macOS maps and unmaps any pages; Windows releases only whole reservations and
// views. So each mapping keeps a record, a part of an anonymous one is given up by decommitting its pages, and a new
// mapping over an old one (MAP_FIXED) makes fresh pages in place.
#include "posix/mapping.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>

#include "diag/log.h"
#include "posix/descriptors.h"
#include "posix/shims.h"
#include "support/darwin_errno.h"
#include "support/locks.h"
#include "support/pages.h"
#include "support/sysv.h"

namespace vlm {

constinit StandstillLock mapping_lock;

namespace {

// <sys/mman.h> of macOS.
constexpr std::int32_t protection_write = 2;
constexpr std::int32_t protection_execute = 4;
constexpr std::int32_t map_shared = 1;
constexpr std::int32_t map_fixed = 0x10;
constexpr std::int32_t map_anonymous = 0x1000;
void* const map_failed = reinterpret_cast<void*>(~std::uintptr_t{0});

struct Mapping;
struct MappingDeleter {
  void operator()(Mapping* mapping) const noexcept;
};
using UniqueMapping = std::unique_ptr<Mapping, MappingDeleter>;

struct Mapping {
  std::uintptr_t address = 0;
  std::uint64_t length = 0;
  UniqueHandle section;  // of a file mapping
  UniqueMapping next;

  bool contains(std::uintptr_t where) const { return where - address < length; }
};

// All guarded by mapping_lock.

/// Never destroyed: when the process ends, threads of the game still use what it maps.
[[clang::no_destroy]] constinit UniqueMapping newest;

/// Room for records. It does not come from the heap: a collector maps memory while others stand still, and one of them
/// may hold the heap's lock.
union FreeRecord {
  FreeRecord* next;
  alignas(Mapping) std::byte room[sizeof(Mapping)];
};
constinit FreeRecord* free_records = nullptr;

void add_free_record_locked(void* place) { free_records = new (place) FreeRecord{.next = free_records}; }

void MappingDeleter::operator()(Mapping* mapping) const noexcept {
  mapping->~Mapping();
  add_free_record_locked(mapping);
}

/// Null when memory is out.
UniqueMapping make_mapping_locked() {
  if (free_records == nullptr) {
    constexpr std::size_t block = 65536;  // what Windows reserves at least
    auto* const fresh = static_cast<std::byte*>(VirtualAlloc(nullptr, block, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    if (fresh == nullptr) return nullptr;
    for (std::size_t at = 0; at + sizeof(FreeRecord) <= block; at += sizeof(FreeRecord))
      add_free_record_locked(fresh + at);
  }
  void* const place = free_records;
  free_records = free_records->next;
  return UniqueMapping(new (place) Mapping);
}

/// The place in the list that holds the newest mapping around an address; one that is null when there is none.
UniqueMapping& find_mapping_locked(std::uintptr_t address) {
  auto* place = &newest;
  while (*place && !(*place)->contains(address)) place = &(*place)->next;
  return *place;
}

void add_mapping_locked(UniqueMapping mapping) {
  mapping->next = std::move(newest);
  newest = std::move(mapping);
}

DWORD host_protection(std::int32_t protection) {
  if (protection & protection_execute) {
    return protection & protection_write ? PAGE_EXECUTE_READWRITE : PAGE_EXECUTE_READ;
  }
  if (protection & protection_write) return PAGE_READWRITE;
  return protection != 0 ? PAGE_READONLY : PAGE_NOACCESS;
}

void* at(std::uintptr_t address) { return reinterpret_cast<void*>(address); }

bool decommit(std::uintptr_t address, std::uint64_t size) { return VirtualFree(at(address), size, MEM_DECOMMIT); }

bool commit(std::uintptr_t address, std::uint64_t size, DWORD state, DWORD protection) {
  const DWORD how = state == MEM_FREE ? MEM_RESERVE | MEM_COMMIT : MEM_COMMIT;
  return VirtualAlloc(at(address), size, how, protection) != nullptr;
}

/// Makes a range read as zero again, whatever it held.
bool renew_range_locked(std::uintptr_t address, std::uint64_t length, DWORD protection) {
  return for_each_region(address, length, [=](const auto& region, std::uintptr_t part, std::uint64_t size) {
    if (region.State == MEM_COMMIT && !decommit(part, size)) return false;
    return protection == PAGE_NOACCESS || commit(part, size, region.State, protection);
  });
}

bool protect_range_locked(std::uintptr_t address, std::uint64_t length, DWORD protection) {
  return for_each_region(address, length, [=](const auto& region, std::uintptr_t part, std::uint64_t size) {
    DWORD before;
    if (region.State == MEM_COMMIT) return VirtualProtect(at(part), size, protection, &before) != 0;
    return protection == PAGE_NOACCESS || commit(part, size, region.State, protection);
  });
}

void* fail_to_map(std::int32_t darwin_error) {
  shim_errno = darwin_error;
  return map_failed;
}

void* map_file_locked(UniqueMapping mapping, std::uint64_t length, std::int32_t protection, std::int32_t flags,
                      std::int32_t number, std::int64_t offset) {
  const Descriptor descriptor = find_descriptor(number);
  if (!descriptor) return map_failed;
  const bool writes = protection & protection_write;
  const bool shared = flags & map_shared;
  const DWORD section_protection = !writes ? PAGE_READONLY : shared ? PAGE_READWRITE : PAGE_WRITECOPY;
  const DWORD view_access = !writes ? FILE_MAP_READ : shared ? FILE_MAP_WRITE : FILE_MAP_COPY;

  DWORD error = ERROR_SUCCESS;
  void* view = nullptr;
  LARGE_INTEGER file_size;
  if (!GetFileSizeEx(descriptor.handle, &file_size)) {
    error = GetLastError();
  } else if (offset >= file_size.QuadPart) {
    error = ERROR_FILE_INVALID;  // the host would take a view without a length for the whole file
  } else {
    mapping->section.reset(CreateFileMappingW(descriptor.handle, nullptr, section_protection, 0, 0, nullptr));
    mapping->length = std::min(length, static_cast<std::uint64_t>(file_size.QuadPart - offset));
    if (mapping->section) {
      view = MapViewOfFile(mapping->section.get(), view_access, static_cast<DWORD>(offset >> 32),
                           static_cast<DWORD>(offset), mapping->length);
    }
    if (view == nullptr) error = GetLastError();
  }
  if (view == nullptr) {
    static constinit MessageLimit limit;
    if (limit.take())
      log_message(0, "[mm] file mmap fd=%d len=%zu failed (%lu)", number, static_cast<std::size_t>(length), error);
    return fail_to_map(DARWIN_ENOMEM);
  }
  mapping->address = reinterpret_cast<std::uintptr_t>(view);
  add_mapping_locked(std::move(mapping));
  return view;
}

SYSV void* mmap_(void* wanted, std::uint64_t length, std::int32_t protection, std::int32_t flags, std::int32_t number,
                 std::int64_t offset) {
  if (length == 0 || offset < 0) return fail_to_map(DARWIN_EINVAL);
  const std::lock_guard hold(mapping_lock);
  UniqueMapping mapping = make_mapping_locked();
  if (!mapping) return fail_to_map(DARWIN_ENOMEM);
  if (!(flags & map_anonymous)) return map_file_locked(std::move(mapping), length, protection, flags, number, offset);

  const DWORD pages = host_protection(protection);
  const bool fixed = (flags & map_fixed) && wanted != nullptr;
  const auto address = reinterpret_cast<std::uintptr_t>(wanted);
  if (fixed) {
    if (address % page_size != 0) return fail_to_map(DARWIN_EINVAL);
    const auto& around = find_mapping_locked(address);
    if (around && !around->section) {
      return renew_range_locked(address, length, pages) ? wanted : fail_to_map(DARWIN_ENOMEM);
    }
  }
  void* const base = VirtualAlloc(fixed ? wanted : nullptr, length, MEM_RESERVE | MEM_COMMIT, pages);
  if (base == nullptr) return fail_to_map(DARWIN_ENOMEM);
  // A reservation starts at a multiple of 64 KiB, at or below the page that was asked for.
  mapping->address = reinterpret_cast<std::uintptr_t>(fixed ? wanted : base);
  mapping->length = length;
  add_mapping_locked(std::move(mapping));
  return fixed ? wanted : base;
}

SYSV std::int32_t munmap_(void* start, std::uint64_t length) {
  const auto address = reinterpret_cast<std::uintptr_t>(start);
  const std::lock_guard hold(mapping_lock);
  auto& mapping = find_mapping_locked(address);
  if (!mapping) return 0;
  if (mapping->section) {
    UnmapViewOfFile(at(mapping->address));
    mapping = std::move(mapping->next);
    return 0;
  }
  if (address == mapping->address && length >= mapping->length) {
    VirtualFree(region_at(address).AllocationBase, 0, MEM_RELEASE);
    mapping = std::move(mapping->next);
    return 0;
  }
  const std::uint64_t size = std::min(length, mapping->address + mapping->length - address);
  for_each_region(address, size, [](const auto& region, std::uintptr_t part, std::uint64_t part_size) {
    return region.State != MEM_COMMIT || decommit(part, part_size);
  });
  return 0;
}

SYSV std::int32_t mprotect_(void* start, std::uint64_t length, std::int32_t protection) {
  const std::lock_guard hold(mapping_lock);
  const auto address = reinterpret_cast<std::uintptr_t>(start);
  return protect_range_locked(address, length, host_protection(protection)) ? 0 : fail(DARWIN_EINVAL);
}

}  // namespace

const ShimEntry mapping_rows[] = {
    {"_mmap", shim(mmap_)},
    {"_munmap", shim(munmap_)},
    {"_mprotect", shim(mprotect_)},
};
constinit const ShimRows mapping_shims = mapping_rows;

}  // namespace vlm
