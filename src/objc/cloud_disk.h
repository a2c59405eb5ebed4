// The cloud store's file on the disk, kept through whatever ends a process or a disk's work:
//
//   icloud_kvs.txt       the store
//   icloud_kvs.txt.tmp   a new state: written, and on the disk, before it takes the store's place in one step. Where it
//                        cannot (another program holds the store), it stays and is the newest state. The next one is
//                        then written to .tmp2, so that there is always one that is whole
//   icloud_kvs.txt.bad   what could not be read, or not all of it: moved here, not overwritten; then .bad2 to .bad10
//
// A start takes the newest state that is whole.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "objc/cloud_file.h"

namespace vlm {

/// Used by one thread at a time.
class CloudDisk {
 public:
  /// In this folder: UTF-8, with '/'.
  explicit CloudDisk(const std::string& folder);

  /// The newest state, once, before the first save. Nothing when there is none, which is how every store begins.
  std::vector<CloudEntry> load();

  /// Makes a file of these entries the newest state. What fails is logged; the next save tries again.
  void save(CloudFileWriter& entries);

 private:
  struct File {
    explicit File(const std::string& name);
    std::string name;  // for messages
    std::wstring path;
  };

  bool is_told(std::uint32_t told);
  void write_in_place(const std::string& bytes);
  bool move_store_aside();
  bool put_in_place(const File& state);
  DWORD put_in_place_patiently(const File& state);
  void forget_waiting();

  const File store_;
  const File temporaries_[2];
  int waiting_ = -1;            // the one of temporaries_ that is newer than the store; -1 when none is
  bool keep_store_ = false;     // what lies in the store's place must not be lost
  DWORD store_error_ = 0;       // why it could not be read; 0 when it is damaged
  std::uint64_t saves_ = 0;     // number of the newest state
  bool refused_ = false;        // the last state could not take the store's place, for all the patience
  std::uint32_t failures_ = 0;  // told or not
};

}  // namespace vlm
