// Blocks of posix_memalign with an alignment above 16. Game code gives them to the same `free` as any other block, but
// the host heap wants them back through another function: the registry tells which blocks those are.
//
//   buckets[hash(block)] -> record -> record        one record per block alive, chained from 65,536 buckets
//
// `free` runs for every block of the game, so it asks without the lock first: a block that is not a multiple of 32, or
// whose bucket is empty, is none of these. That is safe whichever thread frees the block. Before the allocating thread
// lets go of a block, the block's record hangs in its bucket, and the bucket stays occupied until this very block is
// taken out: records of other blocks come and go around it with single stores of a bucket's head that never pass
// through null while a record is left. The freeing thread got the address after that store, so it cannot see the
// bucket as it was before.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/hash.h"
#include "support/locks.h"

namespace vlm {

class AlignedBlocks {
 public:
  constexpr AlignedBlocks() = default;
  AlignedBlocks(const AlignedBlocks&) = delete;
  AlignedBlocks& operator=(const AlignedBlocks&) = delete;

  /// False for a block that is surely not registered. Takes no lock.
  bool may_contain(const void* block) const {
    if (count_.load(std::memory_order_relaxed) == 0) return false;  // one line in the cache, where buckets are many
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    return address % 32 == 0 && buckets_[bucket_of(address)].load(std::memory_order_relaxed) != nullptr;
  }

  /// Registers a block that no other thread knows yet. False when there is no memory for the record.
  bool add(void* block, std::uint64_t size);

  /// The size in bytes that a registered block was requested with; 0 for a block that is not registered.
  std::uint64_t size_of(const void* block);

  /// Takes a block out. False for a block that is not registered.
  bool remove(const void* block);

 private:
  struct Record {
    const void* block;
    std::uint64_t size;  // as requested, never 0
    std::atomic<Record*> next;
  };
  static constexpr unsigned bucket_bits = 16;

  static std::size_t bucket_of(std::uintptr_t address) { return hash_address(address, bucket_bits); }

  /// The pointer that points to the block's record, or to null at the end of the chain.
  std::atomic<Record*>& find_locked(const void* block);

  SrwLock lock_;                          // held for a search or a change of one chain, never while memory is taken
  std::atomic<std::uint64_t> count_ = 0;  // written under the lock
  std::atomic<Record*> buckets_[1 << bucket_bits] = {};  // chains are written and followed under the lock
};

}  // namespace vlm
