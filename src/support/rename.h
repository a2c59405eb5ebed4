// Renaming as POSIX has it.
#pragma once

namespace vlm {

/// Gives a file or directory another name on the same volume, in one step; what has the name goes, and who has it open
/// keeps reading it. Windows has this since version 10, on some file systems. False, with the last error set, when it
/// was not done: MoveFileExW may still be able to.
///   to  is on the disk when the call returns, if `write_through` is set
bool rename_as_posix(const wchar_t* from, const wchar_t* to, bool write_through = false);

}  // namespace vlm
