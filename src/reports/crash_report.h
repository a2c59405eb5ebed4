// Crash reports: what an exception of the processor looks like in the log, with addresses named. Reporting changes
// nothing: the process ends, or goes on, as it would without.
#pragma once

namespace vlm {

/// Reports the first eight exceptions from here on. Part of static start-up.
void install_crash_handler();

}  // namespace vlm
