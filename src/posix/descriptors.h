// The descriptor table: what stands behind a game's file descriptors, and what the file families share.
#pragma once

#include <windows.h>

#include <cstdint>

#include "support/handles.h"
#include "support/locks.h"

namespace vlm {

enum class DescriptorKind : std::uint32_t { Free, File, Directory, Pipe, Standard };

/// A descriptor as one lookup saw it. The table keeps the handle; another thread may close it at any time, as on macOS.
struct Descriptor {
  DescriptorKind kind = DescriptorKind::Free;
  HANDLE handle = nullptr;
  std::uint32_t flags = 0;  // macOS open flags

  explicit operator bool() const { return kind != DescriptorKind::Free; }
};

/// The open descriptor of a number, or a free one with shim_errno EBADF. Takes no lock.
Descriptor find_descriptor(std::int32_t number);

/// Held while a file is appended to: Windows finds the end and writes there in one step, Wine in two. A leaf. Nobody is
/// stopped while he holds it.
extern StandstillLock append_lock;

/// Puts the process's standard handles behind 0, 1 and 2. Part of static start-up.
void set_up_standard_descriptors();

/// Sets shim_errno from a Win32 error that a file call left; returns -1.
std::int32_t fail_from_win32(DWORD error = GetLastError());

}  // namespace vlm
