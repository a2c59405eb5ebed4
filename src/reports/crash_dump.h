// The whole state of a crashed process for a debugger, on request: Windows' own minidump.
#pragma once

#include <windows.h>

namespace vlm {

/// Reads VLM_CRASH_DUMP. Part of static start-up.
void set_up_crash_dump();

/// True when crashes are to leave a dump.
bool wants_crash_dump();

/// Writes PCSaveData\crash.dmp with the data of all modules and all threads, and logs whether it could. Runs on another
/// thread than the crashed one: `thread` has stopped with `record` and `context`.
void write_crash_dump(DWORD thread, EXCEPTION_RECORD& record, CONTEXT& context);

}  // namespace vlm
