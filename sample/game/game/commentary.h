// Which walls the ball has hit, in words, kept as a program for the Mac keeps text: in the C++ library's strings.
#pragma once

/// The ball has hit a side wall, an end wall, or both in a corner.
void comment_on_bounce(bool side, bool end);

/// The bounces so far, "side, end, end" or "none"; of many, the last ones. Valid until the next bounce.
const char* commentary();
