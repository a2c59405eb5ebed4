// The log file and the fatal end: the only ways in which the library speaks.
//
// `loader.log` stands in the folder "PCSaveData" beside the library and is made anew at every start.
// Each line is one write under one lock, so lines of different threads never mix. A message goes to the
// debugger output too, exactly as formatted; a line from log_line() goes to the file only.
#pragma once

namespace vlm {

/// Formats (at most 2047 characters) and writes the message when `level` is at or below the threshold, 0. The file
/// takes the first 250 messages of one format, which is the caller's for ever; the debugger output takes all.
[[gnu::format(__printf__, 2, 3)]] void log_message(int level, const char* format, ...);

/// Writes one finished text as a line: "[seconds.millis] [thread] text\r\n". Opens the log on first use.
void log_line(const char* text);

/// Milliseconds since the log's first line, as its lines show them.
unsigned long long log_milliseconds();

/// What fatal_error() calls, on its thread, when its message is in the log: it may tell more there.
void set_fatal_end_reporter(void (*reporter)());

/// Logs "FATAL: " and the message, flushes the C streams, shows the message in a box captioned "Velmora"
/// and ends the process with code 3.
[[noreturn, gnu::format(__printf__, 1, 2)]] void fatal_error(const char* format, ...);

}  // namespace vlm
