// What the player says: plain lines on the standard output, in the order in which things happen. The game's own lines
// come through the same stream.
#pragma once

/// The player's exit codes. The library ends the process with 0 itself.
enum ExitCode { EXIT_NOT_STARTED = 1, EXIT_NOT_AS_EXPECTED = 2 };

/// One finished line.
void print_line(const char* text);

/// "player: " and the text.
[[gnu::format(__printf__, 1, 2)]] void say(const char* format, ...);

/// "player: ERROR: " and the text, then the end of the process.
[[noreturn, gnu::format(__printf__, 2, 3)]] void fail(ExitCode code, const char* format, ...);

/// Ends the process with EXIT_NOT_AS_EXPECTED unless `condition` holds; the text says what was expected and found.
[[gnu::format(__printf__, 2, 3)]] void expect(bool condition, const char* format, ...);
