#include "posix/aligned_blocks.h"

#include <cstdlib>
#include <mutex>
#include <new>

namespace vlm {

std::atomic<AlignedBlocks::Record*>& AlignedBlocks::find_locked(const void* block) {
  auto* link = &buckets_[bucket_of(reinterpret_cast<std::uintptr_t>(block))];
  while (Record* const record = *link) {
    if (record->block == block) break;
    link = &record->next;
  }
  return *link;
}

bool AlignedBlocks::add(void* block, std::uint64_t size) {
  auto* const record = static_cast<Record*>(std::malloc(sizeof(Record)));
  if (record == nullptr) return false;
  auto& bucket = buckets_[bucket_of(reinterpret_cast<std::uintptr_t>(block))];
  const std::lock_guard guard(lock_);
  new (record) Record{block, size, bucket.load()};
  bucket = record;
  ++count_;
  return true;
}

std::uint64_t AlignedBlocks::size_of(const void* block) {
  const std::lock_guard guard(lock_);
  const Record* const record = find_locked(block);
  return record == nullptr ? 0 : record->size;
}

bool AlignedBlocks::remove(const void* block) {
  Record* record;
  {
    const std::lock_guard guard(lock_);
    auto& link = find_locked(block);
    record = link;
    if (record == nullptr) return false;
    link = record->next.load();
    --count_;
  }
  std::free(record);
  return true;
}

}  // namespace vlm
