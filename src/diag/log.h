// The log file and the fatal end: the only ways in which the library speaks.
//
// `loader.log` stands in the folder "PCSaveData" beside the library and is made anew at every start; that of the start
// before is kept as `loader.previous.log`, as a player often starts again before he sends it. Each line is one write
// under one lock, so lines of different threads never mix. A message goes to the debugger output too, exactly as
// formatted; a line from log_line() goes to the file only.
#pragma once

#include <atomic>

#include "support/locks.h"

namespace vlm {

/// Formats (at most 2047 characters) and writes the message when `level` is at or below the threshold, 0.
[[gnu::format(__printf__, 2, 3)]] void log_message(int level, const char* format, ...);

/// For a message that a game could cause in every frame: says true so many times.
class MessageLimit {
 public:
  bool take() { return left_.load(std::memory_order_relaxed) > 0 && left_.fetch_sub(1) > 0; }

 private:
  std::atomic<int> left_ = 100;
};

/// Writes one finished text as a line: "[seconds.millis] [thread] text\r\n". Opens the log on first use.
///   thread  whom the line is about; 0 stands for the calling one
void log_line(const char* text, unsigned long thread = 0);

/// Held while a message is written. Nobody is stopped while he holds it.
extern StandstillLock log_lock;

/// Writes out what C streams still hold, within two seconds: another thread may hold a stream while it waits for input.
void flush_streams();

/// Milliseconds since the log's first line, as its lines show them.
unsigned long long log_milliseconds();

/// What fatal_error() calls, on its thread, when its message is in the log: it may tell more there.
void set_fatal_end_reporter(void (*reporter)());

/// Logs "FATAL: " and the message, flushes the C streams, shows the message in a box captioned "Velmora"
/// and ends the process with code 3.
[[noreturn, gnu::format(__printf__, 1, 2)]] void fatal_error(const char* format, ...);

}  // namespace vlm
