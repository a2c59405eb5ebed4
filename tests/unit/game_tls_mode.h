// The library's game TLS index in a mode of the test's choosing, for as long as the object lives.
#pragma once

#include <windows.h>

#include <vector>

#include "tls/game_tls.h"

enum class TlsMode { normal, expansion };

class ScopedTlsMode {
 public:
  explicit ScopedTlsMode(TlsMode mode)
      : index_(vlm::game_tls_index), offset_(vlm::game_storage_offset), expansion_(vlm::game_tls_expansion) {
    if (mode == TlsMode::expansion) {
      // Below 64 until those are used up.
      do {
        taken_.push_back(TlsAlloc());
      } while (taken_.back() < vlm::teb_tls_slot_count);
    }
    vlm::game_tls_index = vlm::no_tls_index;
    vlm::game_tls_init();
    taken_.push_back(vlm::game_tls_index);
  }
  ~ScopedTlsMode() {
    for (const DWORD index : taken_) TlsFree(index);
    vlm::game_tls_index = index_;
    vlm::game_storage_offset = offset_;
    vlm::game_tls_expansion = expansion_;
  }
  ScopedTlsMode(const ScopedTlsMode&) = delete;
  ScopedTlsMode& operator=(const ScopedTlsMode&) = delete;

 private:
  std::uint32_t index_;
  std::uint64_t offset_;
  std::uint32_t expansion_;
  std::vector<DWORD> taken_;
};
