// trace.log: the traced calls of all threads in the order of their times, written by a thread of its own.
#pragma once

#include <windows.h>

#include <string>

namespace vlm {

/// Makes the file and starts its writer. False when there is no file to write to. Once, before the first call.
///   path  of the file
bool start_trace_log(const std::wstring& path);

/// Writes what is recorded so far, for a process that may end at any moment. Without a trace it does nothing.
void write_trace_now();

/// Logs the last calls of a thread, the newest last.
void log_last_calls(DWORD thread);

}  // namespace vlm
